// The method registry: one row per exported halftoning method. halftone --list, the golden
// digests and the benchmarks all read this one table.
#pragma once

#include <span>

#include "halftone/halftone.h"

namespace halftone {

using MethodRow = halftone_method_info;

// An export as the registry's generic entry pointer (callers cast back by entry_kind), with the
// entry kind its signature gives: one constructor a shape, so no row can name the wrong kind.
struct Export {
  Export(halftone_band_fn f) : kind(HALFTONE_ENTRY_BAND), entry(Generic(f)) {}
  Export(halftone_band_unsigned_fn f) : kind(HALFTONE_ENTRY_BAND_UNSIGNED), entry(Generic(f)) {}
  Export(halftone_plane_fn f) : kind(HALFTONE_ENTRY_PLANE), entry(Generic(f)) {}
  Export(int(HALFTONE_CALL* f)(unsigned char*, unsigned char*&, int, int, int*, unsigned char*))
      : kind(HALFTONE_ENTRY_LOOKUP_REF), entry(Generic(f)) {}
  Export(halftone_lookup_fn f) : kind(HALFTONE_ENTRY_LOOKUP), entry(Generic(f)) {}
  template <class Fn>
  static void (*Generic(Fn f))(void) { return reinterpret_cast<void (*)(void)>(f); }
  int kind;
  void (*entry)(void);
};

// One row, each field as halftone_method_info gives it; band methods use the band layout.
inline MethodRow Row(const char* name, const char* family, int bits, Export e, const char* description,
                     unsigned tables = 0, halftone_layout layout = HALFTONE_LAYOUT_BAND) {
  return {name, family, description, bits, e.kind, layout, tables, e.entry};
}

// Rows by family, each defined beside that family's exports.
std::span<const MethodRow> SpineMethods();
std::span<const MethodRow> RandomSplitMethods();
std::span<const MethodRow> DoubleDiffusionMethods();
std::span<const MethodRow> TableDiffusionMethods();
std::span<const MethodRow> ScreeningMethods();
std::span<const MethodRow> RotatedMethods();

}  // namespace halftone
