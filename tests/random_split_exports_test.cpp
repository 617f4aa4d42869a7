// The random-split exports through the public header: every one is in the method registry with
// its output depth and entry shape, and refuses zero sizes without touching the dot band.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "halftone/halftone.h"

namespace {

struct Expected {
  const char* name;
  int bits;
  int kind;
};

constexpr Expected kMethods[] = {
    {"FastGroup", 2, HALFTONE_ENTRY_BAND},          {"FastGroup1", 2, HALFTONE_ENTRY_BAND_UNSIGNED},
    {"ArcistPump", 2, HALFTONE_ENTRY_BAND},         {"Kaishanxing", 2, HALFTONE_ENTRY_BAND},
    {"SymanOpening", 2, HALFTONE_ENTRY_BAND},       {"sdiufiavs", 1, HALFTONE_ENTRY_BAND},
    {"sdiufiavs1", 1, HALFTONE_ENTRY_BAND_UNSIGNED}, {"mandfanes", 1, HALFTONE_ENTRY_BAND},
    {"orangecagn", 1, HALFTONE_ENTRY_BAND},         {"jsdi6yruis", 1, HALFTONE_ENTRY_BAND},
    {"irpduix7sg", 1, HALFTONE_ENTRY_BAND_UNSIGNED}, {"hxkjsdi67x", 1, HALFTONE_ENTRY_PLANE},
    {"RoundPump", 4, HALFTONE_ENTRY_BAND},          {"RoundPump1", 4, HALFTONE_ENTRY_BAND_UNSIGNED},
};

using BandFn = int (*)(unsigned char*, unsigned char*, int, int, unsigned);
using UnsignedBandFn = int (*)(unsigned char*, unsigned char*, unsigned, unsigned, unsigned);
using PlaneFn = int (*)(unsigned char*, unsigned char*, unsigned, unsigned);

// Calls the method with (w, h) as a start-of-job band of one plane.
int Call(const halftone_method_info& info, unsigned char* src, unsigned char* dst, unsigned w, unsigned h) {
  const unsigned flags = HALFTONE_FLAGS(1, HALFTONE_PHASE_START);
  switch (info.entry_kind) {
    case HALFTONE_ENTRY_BAND:
      return reinterpret_cast<BandFn>(info.entry)(src, dst, static_cast<int>(w), static_cast<int>(h), flags);
    case HALFTONE_ENTRY_BAND_UNSIGNED: return reinterpret_cast<UnsignedBandFn>(info.entry)(src, dst, w, h, flags);
    case HALFTONE_ENTRY_PLANE: return reinterpret_cast<PlaneFn>(info.entry)(src, dst, w, h);
    default: return -1;
  }
}

TEST(RandomSplitExports, RegisteredAndRefuseZeroSizesUntouched) {
  halftone_set_fixed_time(1);
  for (const Expected& want : kMethods) {
    SCOPED_TRACE(want.name);
    halftone_method_info info{};
    bool found = false;
    for (int i = 0; i < halftone_method_count() && !found; ++i) {
      ASSERT_EQ(halftone_method_get(i, &info), 0);
      found = std::string(info.name) == want.name;
    }
    ASSERT_TRUE(found);
    EXPECT_EQ(info.output_bits, want.bits);
    EXPECT_EQ(info.entry_kind, want.kind);
    EXPECT_GT(std::strlen(info.description), 10u);

    std::vector<unsigned char> src(64, 0), dst(64, 0xEE);
    EXPECT_EQ(Call(info, src.data(), dst.data(), 0, 4), HALFTONE_ERR_OUT_OF_CONTRACT);
    EXPECT_EQ(Call(info, src.data(), dst.data(), 4, 0), HALFTONE_ERR_OUT_OF_CONTRACT);
    for (unsigned char b : dst) ASSERT_EQ(b, 0xEE);
    // Inside the contract the same call clears the band (and ORs in whatever dots all-zero
    // input gets), stopping at its 4 x 4 rows of 4 bytes.
    EXPECT_EQ(Call(info, src.data(), dst.data(), 4, 4), 0);
    EXPECT_NE(dst[0], 0xEE);
    EXPECT_EQ(dst[16], 0xEE);
  }
  halftone_set_fixed_time(-1);
}

}  // namespace
