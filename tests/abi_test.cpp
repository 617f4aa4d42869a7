// The exports: the shared library exports exactly the names of the ABI list, every registry row
// names an export with its depth and shape, and the band exports keep the call contract.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

using halftone_test::CallMethod;
using halftone_test::FindMethod;

std::set<std::string> AbiList() {
  std::set<std::string> names;
  std::ifstream in(HALFTONE_ABI_LIST);
  for (std::string line; std::getline(in, line);) {
    while (!line.empty() && (line.back() == ' ' || line.back() == '\r')) line.pop_back();
    if (!line.empty() && line[0] != '#') names.insert(line);
  }
  return names;
}

TEST(Abi, DynamicSymbolsAreExactlyTheExportList) {
  const std::set<std::string> expected = AbiList();
  ASSERT_FALSE(expected.empty());
  std::FILE* nm = popen("nm -D --defined-only \"" HALFTONE_LIBRARY_FILE "\" 2>/dev/null", "r");
  ASSERT_NE(nm, nullptr);
  std::set<std::string> exported;
  char line[512];
  while (std::fgets(line, sizeof line, nm)) {
    std::string s(line);
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
    const std::size_t space = s.rfind(' ');
    if (space != std::string::npos) exported.insert(s.substr(space + 1));
  }
  const int status = pclose(nm);
  if (exported.empty() && status != 0) GTEST_SKIP() << "nm is not available";
  for (const std::string& name : exported) EXPECT_TRUE(expected.count(name)) << "leaked symbol: " << name;
  for (const std::string& name : expected) EXPECT_TRUE(exported.count(name)) << "missing export: " << name;
}

TEST(Abi, EveryRegisteredMethodIsAnExportWithItsShape) {
  const std::set<std::string> expected = AbiList();
  const int n = halftone_method_count();
  ASSERT_GT(n, 0);
  std::set<std::string> seen;
  for (int i = 0; i < n; ++i) {
    halftone_method_info info{};
    ASSERT_EQ(halftone_method_get(i, &info), 0);
    EXPECT_TRUE(expected.count(info.name)) << info.name;
    EXPECT_TRUE(seen.insert(info.name).second) << "listed twice: " << info.name;
    EXPECT_TRUE(info.output_bits == 1 || info.output_bits == 2 || info.output_bits == 4) << info.name;
    EXPECT_NE(info.entry, nullptr);
    EXPECT_GT(std::string(info.description).size(), 10u) << info.name;
  }
  halftone_method_info info{};
  EXPECT_EQ(halftone_method_get(n, &info), HALFTONE_ERR_OUT_OF_CONTRACT);
  EXPECT_EQ(halftone_method_get(0, nullptr), HALFTONE_ERR_OUT_OF_CONTRACT);
}

struct Row {
  const char* name;
  int bits, kind;
};
constexpr int kB = HALFTONE_ENTRY_BAND, kU = HALFTONE_ENTRY_BAND_UNSIGNED;

constexpr Row kRandomSplit[] = {
    {"FastGroup", 2, kB},  {"FastGroup1", 2, kU}, {"ArcistPump", 2, kB},   {"Kaishanxing", 2, kB},
    {"SymanOpening", 2, kB}, {"sdiufiavs", 1, kB},  {"sdiufiavs1", 1, kU},   {"mandfanes", 1, kB},
    {"orangecagn", 1, kB}, {"jsdi6yruis", 1, kB}, {"irpduix7sg", 1, kU},   {"hxkjsdi67x", 1, HALFTONE_ENTRY_PLANE},
    {"RoundPump", 4, kB},  {"RoundPump1", 4, kU},
};
constexpr Row kTableDiffusion[] = {
    {"sdiufiavs2", 1, kU}, {"sdiufiavs3", 1, kU}, {"sdiufiavs4", 2, kU}, {"suiruiskao8", 1, kU},
    {"suiruiskao11", 1, kU}, {"highforces", 1, kU}, {"Kaocosyx1", 1, kB}, {"Kaocosyx10", 1, kU},
    {"Kaocosyx13", 2, kB}, {"Kaocosyx14", 2, kB}, {"CrisixOut", 1, kU}, {"CrisixOut31", 1, kB},
};

void ExpectRow(const Row& want, halftone_method_info& info) {
  ASSERT_TRUE(FindMethod(want.name, info));
  EXPECT_EQ(info.output_bits, want.bits);
  EXPECT_EQ(info.entry_kind, want.kind);
}

TEST(RandomSplitExports, RegisteredAndRefuseZeroSizesUntouched) {
  halftone_set_fixed_time(1);
  const unsigned start = HALFTONE_FLAGS(1, HALFTONE_PHASE_START);
  for (const Row& want : kRandomSplit) {
    SCOPED_TRACE(want.name);
    halftone_method_info info{};
    ExpectRow(want, info);
    std::vector<unsigned char> src(64, 0), dst(64, 0xEE);
    EXPECT_EQ(CallMethod(info, src.data(), dst.data(), 0, 4, start), HALFTONE_ERR_OUT_OF_CONTRACT);
    EXPECT_EQ(CallMethod(info, src.data(), dst.data(), 4, 0, start), HALFTONE_ERR_OUT_OF_CONTRACT);
    for (unsigned char b : dst) ASSERT_EQ(b, 0xEE);
    // Inside the contract the call clears its 4 rows of 4 bytes (ORing in the dots of all-zero
    // input) and stops there.
    EXPECT_EQ(CallMethod(info, src.data(), dst.data(), 4, 4, start), 0);
    EXPECT_NE(dst[0], 0xEE);
    EXPECT_EQ(dst[16], 0xEE);
  }
  halftone_set_fixed_time(-1);
}

TEST(TableDiffusionExports, EveryMethodIsRegisteredAndHalftonesAJob) {
  halftone_set_fixed_time(1234);
  const int w = 37, h = 6;
  std::vector<unsigned char> src(40 * h * 2);
  for (std::size_t i = 0; i < src.size(); ++i) src[i] = static_cast<unsigned char>(i * 7);
  for (const Row& want : kTableDiffusion) {
    SCOPED_TRACE(want.name);
    halftone_method_info info{};
    ExpectRow(want, info);
    auto call = [&](std::vector<unsigned char>& dst, int cw, unsigned planes, unsigned phase) {
      return CallMethod(info, src.data(), dst.data(), cw, h, HALFTONE_FLAGS(planes, phase));
    };
    const int stride = ((w * info.output_bits + 31) >> 5) * 4;
    std::vector<unsigned char> first(static_cast<std::size_t>(stride * h * 2), 0xEE), again(first);
    EXPECT_EQ(call(first, w, 2, HALFTONE_PHASE_START), 0);
    EXPECT_EQ(call(first, w, 2, HALFTONE_PHASE_END), 0);
    // The job is over: a further band is refused, a new job reproduces the first.
    EXPECT_EQ(call(again, w, 2, HALFTONE_PHASE_MIDDLE), HALFTONE_ERR_OUT_OF_CONTRACT);
    EXPECT_EQ(call(again, w, 2, HALFTONE_PHASE_START), 0);
    EXPECT_EQ(call(again, w, 2, HALFTONE_PHASE_END), 0);
    EXPECT_EQ(first, again);
    if (info.entry_kind == kB) {
      EXPECT_EQ(call(again, -1, 1, HALFTONE_PHASE_START), HALFTONE_ERR_OUT_OF_CONTRACT);
    }
  }
  halftone_method_info info{};
  for (auto [name, tables] : {std::pair{"Kaocosyx13", HALFTONE_TABLE_BIAS}, std::pair{"Kaocosyx1", HALFTONE_TABLE_BIAS},
                              std::pair{"CrisixOut", HALFTONE_TABLE_LAYER}}) {
    ASSERT_TRUE(FindMethod(name, info));
    EXPECT_EQ(info.tables, tables) << name;
  }
  halftone_set_fixed_time(-1);
}

}  // namespace
