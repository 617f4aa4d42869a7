// The tone-curve term the table-driven diffusions add to a pixel's error at the columns of one
// parity: the current curve A or B of the print mode, indexed by the pixel's input level.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "frame/engine.h"
#include "frame/force_inline.h"

namespace halftone {

enum class Curve : std::uint8_t { kNone, kA, kB };

// A curve term added at the columns of one parity of a scan direction.
struct CurveTerm {
  Curve curve = Curve::kNone;
  std::size_t parity = 0;  // 0: even columns, 1: odd columns
};

template <CurveTerm T>
inline int CurveBias(const Engine& engine, int v, std::size_t x) {
  if constexpr (T.curve == Curve::kNone) {
    return 0;
  } else {
    if ((x & 1) != T.parity) return 0;
    const ToneCurve& curve = T.curve == Curve::kA ? engine.curves.a() : engine.curves.b();
    return curve[static_cast<std::size_t>(v)];
  }
}

// A direction's curve term for every column parity and input level, [parity * 256 + v], built
// once per band call by the fast passes so a pixel adds one table entry instead of testing its
// column.
using CurveTermTable = std::array<std::int16_t, 2 * kCurveLength>;

template <CurveTerm T>
void BuildCurveTermTable(const Engine& engine, CurveTermTable& table) {
  for (std::size_t parity = 0; parity < 2; ++parity)
    for (std::size_t v = 0; v < kCurveLength; ++v)
      table[parity * kCurveLength + v] = static_cast<std::int16_t>(CurveBias<T>(engine, static_cast<int>(v), parity));
}

// The entry of such a table for a pixel at column parity `odd`: none where the term does not
// fall, so a scan that knows the parity at compile time drops the load and the addition.
template <CurveTerm T>
HALFTONE_FORCE_INLINE inline int CurveTermAt(const std::int16_t* table, unsigned odd, std::size_t v) {
  if constexpr (T.curve == Curve::kNone) {
    return 0;
  } else {
    return odd == T.parity ? table[T.parity * kCurveLength + v] : 0;
  }
}

}  // namespace halftone
