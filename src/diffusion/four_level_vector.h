// The four-level decision with the raw-sample vetoes as the random-split passes of the spine and
// the grouped routine take it: by value, as a window table and on 16-bit vector lanes.
#pragma once

#include <optional>

#include "diffusion/four_level.h"
#include "diffusion/random_split_vector.h"

namespace halftone {

#if HALFTONE_VECTOR_ROWS
// With the levels in order (L0 <= L1 <= L2 <= L3), the vetoes leave each sample one threshold
// between two neighbouring levels: L0/L1 at M01 where r <= L1, L2/L3 at M23 where r > L2, and
// L1/L2 at M12 between. Levels out of order keep the table (Of gives none).
struct FourLevelVector {
  vec::V16 l1_above, l2_above;             // L1 + 1 and L2 + 1: r <= L as L + 1 > r
  vec::V16 t_none, t_step_b, t_step_a;     // the threshold: M23, then M12 - M23, M01 - M12
  vec::V16 lo_none, lo_step_b, lo_step_a;  // minus the lower level, by the same steps
  vec::V16 d_none, d_step_b, d_step_a;     // the step from the lower level to the upper one
  struct Sample {
    vec::V16 threshold, minus_lower, step, lower_code;
  };

  static std::optional<FourLevelVector> Of(const FourLevels& lv) {
    if (!(lv.L0 <= lv.L1 && lv.L1 <= lv.L2 && lv.L2 <= lv.L3)) return std::nullopt;
    using halftone::vec::Splat;
    const int t_none = lv.M23, t_b = lv.M12, t_a = lv.M01;
    const int lo_none = lv.L2, lo_b = lv.L1, lo_a = lv.L0;
    const int d_none = lv.L3 - lv.L2, d_b = lv.L2 - lv.L1, d_a = lv.L1 - lv.L0;
    return FourLevelVector{Splat(lv.L1 + 1), Splat(lv.L2 + 1),
                           Splat(t_none),    Splat(t_b - t_none),   Splat(t_a - t_b),
                           Splat(-lo_none),  Splat(lo_none - lo_b), Splat(lo_b - lo_a),
                           Splat(d_none),    Splat(d_b - d_none),   Splat(d_a - d_b)};
  }

  HALFTONE_FORCE_INLINE Sample Prepare(vec::V16 r) const {
    using vec::V16;
    const V16 a = vec::Greater(l1_above, r), b = vec::Greater(l2_above, r);  // a implies b
    const auto by_class = [&](V16 none, V16 step_b, V16 step_a) HALFTONE_FORCE_INLINE {
      return none + (b & step_b) + (a & step_a);
    };
    // Code of the lower level: L2 (1), L1 (2) where r <= L2, L0 (3) where r <= L1.
    return {by_class(t_none, t_step_b, t_step_a), by_class(lo_none, lo_step_b, lo_step_a),
            by_class(d_none, d_step_b, d_step_a), vec::Splat(kCodeL2) - a - b};
  }
  // The error v - level + term, and the code (the upper level's is one less).
  HALFTONE_FORCE_INLINE vec::V16 Error(vec::V16 v, const Sample& k, vec::V16 term, vec::V16& code) const {
    const vec::V16 upper = vec::Greater(v, k.threshold);
    code = k.lower_code + upper;
    return v + term + k.minus_lower - (upper & k.step);
  }
};
#endif

// The decision of a pass over the four levels; its table holds each error's part err / kPartDen.
// The raw sample counts only through its sides of L1 and L2.
template <int kPartDen>
struct FourLevelDecision {
  FourLevels lv;
  random_split::Outcome Decide(int v, int r) const {
    const unsigned code = DecideFourLevel(lv, v, r);
    return {code, v - lv.Level(code)};
  }
  random_split::ClampedDecisionTable<kPartDen> Fast() const {
    return random_split::DecisionTableOf<kPartDen>(
        *this, [&](int r) { return unsigned{r <= lv.L1} | unsigned{r <= lv.L2} << 1; });
  }
#if HALFTONE_VECTOR_ROWS
  std::optional<FourLevelVector> Vector() const { return FourLevelVector::Of(lv); }
#endif
};

}  // namespace halftone
