/* The public header is usable from C: every declaration and macro compiles as C99. */
#include "halftone/halftone.h"

int halftone_header_is_c(void);
int halftone_header_is_c(void) {
  halftone_method_info info;
  unsigned char *band = 0;
  info.entry = 0;
  (void)band;
  return (int)HALFTONE_FLAGS(2, HALFTONE_PHASE_START) + (info.entry == 0);
}
