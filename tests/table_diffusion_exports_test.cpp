// The integer table-driven methods through the public entry points and the method registry.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "halftone/halftone.h"

namespace {

using BandFn = int (*)(unsigned char*, unsigned char*, int, int, unsigned);
using BandUnsignedFn = int (*)(unsigned char*, unsigned char*, unsigned, unsigned, unsigned);

const char* const kNames[] = {"sdiufiavs2", "sdiufiavs3", "sdiufiavs4", "suiruiskao8", "suiruiskao11", "highforces",
                              "Kaocosyx1",  "Kaocosyx10", "Kaocosyx13", "Kaocosyx14",  "CrisixOut",    "CrisixOut31"};

bool Find(const std::string& name, halftone_method_info* info) {
  for (int i = 0; i < halftone_method_count(); ++i)
    if (halftone_method_get(i, info) == 0 && name == info->name) return true;
  return false;
}

int Call(const halftone_method_info& info, unsigned char* src, unsigned char* dst, int w, int h, unsigned flags) {
  if (info.entry_kind == HALFTONE_ENTRY_BAND) return reinterpret_cast<BandFn>(info.entry)(src, dst, w, h, flags);
  return reinterpret_cast<BandUnsignedFn>(info.entry)(src, dst, static_cast<unsigned>(w), static_cast<unsigned>(h),
                                                      flags);
}

TEST(TableDiffusionExports, EveryMethodIsRegisteredAndHalftonesAJob) {
  halftone_set_fixed_time(1234);
  const int w = 37, h = 6;
  std::vector<unsigned char> src(40 * h * 2);
  for (std::size_t i = 0; i < src.size(); ++i) src[i] = static_cast<unsigned char>(i * 7);
  for (const char* name : kNames) {
    halftone_method_info info{};
    ASSERT_TRUE(Find(name, &info)) << name;
    EXPECT_GT(std::strlen(info.description), 10u) << name;
    const int stride = ((w * info.output_bits + 31) >> 5) * 4;
    std::vector<unsigned char> first(static_cast<std::size_t>(stride * h * 2), 0xEE);
    std::vector<unsigned char> again(first.size(), 0xEE);
    EXPECT_EQ(Call(info, src.data(), first.data(), w, h, HALFTONE_FLAGS(2, HALFTONE_PHASE_START)), 0) << name;
    EXPECT_EQ(Call(info, src.data(), first.data(), w, h, HALFTONE_FLAGS(2, HALFTONE_PHASE_END)), 0) << name;
    // The job is over: a further band is refused, a new job reproduces the first.
    EXPECT_EQ(Call(info, src.data(), again.data(), w, h, HALFTONE_FLAGS(2, HALFTONE_PHASE_MIDDLE)),
              HALFTONE_ERR_OUT_OF_CONTRACT)
        << name;
    EXPECT_EQ(Call(info, src.data(), again.data(), w, h, HALFTONE_FLAGS(2, HALFTONE_PHASE_START)), 0) << name;
    EXPECT_EQ(Call(info, src.data(), again.data(), w, h, HALFTONE_FLAGS(2, HALFTONE_PHASE_END)), 0) << name;
    EXPECT_EQ(first, again) << name;
    if (info.entry_kind == HALFTONE_ENTRY_BAND) {
      EXPECT_EQ(Call(info, src.data(), again.data(), -1, h, HALFTONE_FLAGS(1, HALFTONE_PHASE_START)),
                HALFTONE_ERR_OUT_OF_CONTRACT)
          << name;
    }
  }
  halftone_set_fixed_time(-1);
}

TEST(TableDiffusionExports, TablesTheMethodsRead) {
  halftone_method_info info{};
  ASSERT_TRUE(Find("Kaocosyx13", &info));
  EXPECT_EQ(info.tables, HALFTONE_TABLE_BIAS);
  ASSERT_TRUE(Find("Kaocosyx1", &info));
  EXPECT_EQ(info.tables, HALFTONE_TABLE_BIAS);
  ASSERT_TRUE(Find("CrisixOut", &info));
  EXPECT_EQ(info.tables, HALFTONE_TABLE_LAYER);
  ASSERT_TRUE(Find("sdiufiavs4", &info));
  EXPECT_EQ(info.output_bits, 2);
}

}  // namespace
