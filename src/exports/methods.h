// The method registry: one row per exported halftoning method. halftone --list, the golden
// digests and the benchmarks all read this one table.
#pragma once

#include <span>

#include "halftone/halftone.h"

namespace halftone {

using MethodRow = halftone_method_info;

// Casts an export to the registry's generic entry pointer; callers cast back by entry_kind.
template <class Fn>
constexpr void (*Entry(Fn* fn))(void) {
  return reinterpret_cast<void (*)(void)>(fn);
}

// Rows by family, each defined beside that family's exports.
std::span<const MethodRow> SpineMethods();
std::span<const MethodRow> RandomSplitMethods();
std::span<const MethodRow> DoubleDiffusionMethods();
std::span<const MethodRow> TableDiffusionMethods();
std::span<const MethodRow> ScreeningMethods();
std::span<const MethodRow> RotatedMethods();

}  // namespace halftone
