// Four-level (2-bit) random-split diffusion shared pieces: the level set and the decision with
// the raw-sample vetoes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/band.h"
#include "frame/engine.h"

namespace halftone {

// Output codes of the four-level dot plane: code 3 is level L0 (largest drop), 0 is L3 (none).
inline constexpr unsigned kCodeL0 = 3, kCodeL1 = 2, kCodeL2 = 1, kCodeL3 = 0;
static_assert(kCodeL3 == 0 && kCodeL2 == 1 && kCodeL1 == 2 && kCodeL0 == 3, "FourLevels::Level indexes by code");

// Levels L0..L3 and the floored midpoints between them, read once per call.
struct FourLevels {
  int L0, L1, L2, L3;
  int M01, M12, M23;

  static FourLevels From(const LevelValues& lv) {
    const int l0 = lv.L[0], l1 = lv.L[1], l2 = lv.L[2], l3 = lv.L[3];
    return {l0, l1, l2, l3, (l0 + l1) >> 1, (l1 + l2) >> 1, (l2 + l3) >> 1};
  }
  int Level(unsigned code) const {
    const int by_code[] = {L3, L2, L1, L0};
    return by_code[code];
  }
};

// The corrected value e picks the nearest level, but the raw sample r vetoes levels on the
// wrong side of it: L0 only where r <= L1, L3 only where r > L2. Ties fall on the "<=" side.
inline unsigned DecideFourLevel(const FourLevels& lv, int e, int r) {
  if (e <= lv.M23) {
    if (e > lv.M12) return r <= lv.L1 ? kCodeL1 : kCodeL2;
    if (e <= lv.M01) {
      if (r <= lv.L1) return kCodeL0;
      return r > lv.L2 ? kCodeL2 : kCodeL1;
    }
    return r <= lv.L2 ? kCodeL1 : kCodeL2;
  }
  if (r <= lv.L1) return kCodeL1;
  return r <= lv.L2 ? kCodeL2 : kCodeL3;
}

// Serpentine four-level diffusion with a 1/3 : 2/3 random split (the spine routine).
// w and h may be zero; the flags word carries planes and phase.
int SerpentineFourLevel(Engine& engine, const std::uint8_t* src, std::uint8_t* dst, std::size_t w,
                        std::size_t h, HalftoneFlags flags);

}  // namespace halftone
