#include "rotated/crt_rand.h"

namespace halftone {

CrtRand& ThreadCrtRand() {
  thread_local CrtRand generator;
  return generator;
}

}  // namespace halftone
