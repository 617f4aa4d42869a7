// The exports: the shared library exports exactly the names of the ABI list, every registry row
// names an export with its depth and shape, and the band exports keep the call contract.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "golden_jobs.h"
#include "test_support.h"

namespace {

using halftone_test::kCanary;

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

// Methods that keep a job across calls: every diffusion, and the dispersed screen that runs
// over the error rows. The other screens halftone whatever band they are given.
bool KeepsAJob(const halftone_method_info& m) {
  return std::string(m.family).find("screening") == std::string::npos || std::string(m.name) == "WindowTextAM";
}
// Zero width or height refused with 20401: the random-split routines but the serpentine pair,
// the double-precision family and the cyclic routine; the others run on them and write nothing.
bool RefusesZeroSizes(const halftone_method_info& m) {
  const std::string family = m.family;
  return (family.starts_with("random-split") && family != "random-split diffusion, four levels") ||
         family.find("double") != std::string::npos || std::string(m.name) == "highforces";
}

class BandContract : public testing::TestWithParam<halftone_method_info> {};

// The band contract of every band method: refused calls return 20401 and touch nothing (a band
// wider or with more planes than its job, or after its job ended; negative sizes; zero sizes
// where the routine cannot run on them); inside the contract every call returns 0 and writes
// no byte past its band, and a new job repeats the first.
TEST_P(BandContract, RefusedCallsTouchNothingAndJobsRepeat) {
  const halftone_method_info& m = GetParam();
  halftone_set_fixed_time(1234);
  constexpr int w = 37, h = 6;
  const std::size_t bytes = halftone_test::DotStride(w, static_cast<unsigned>(m.output_bits)) * 2 * h;
  std::vector<unsigned char> src(40 * h * 2), first(bytes + 4, kCanary), again(first);
  const std::vector<unsigned char> untouched(first);
  for (std::size_t i = 0; i < src.size(); ++i) src[i] = static_cast<unsigned char>(i * 7);
  auto call = [&](std::vector<unsigned char>& dst, int cw, int ch, unsigned planes, unsigned phase) {
    // Negative sizes pass through the size type unchanged (they wrap back on conversion).
    return golden::CallBand(m, src.data(), dst.data(), static_cast<std::size_t>(cw), static_cast<std::size_t>(ch),
                            HALFTONE_FLAGS(planes, phase));
  };
  constexpr int kRefused = HALFTONE_ERR_OUT_OF_CONTRACT;
  const bool job = KeepsAJob(m);
  const int zero_rc = RefusesZeroSizes(m) ? kRefused : 0;
  EXPECT_EQ(call(again, 0, h, 2, HALFTONE_PHASE_START), zero_rc) << "zero width";
  EXPECT_EQ(call(again, w, 0, 2, HALFTONE_PHASE_START), zero_rc) << "zero height";
  EXPECT_EQ(call(again, w, h, 0, HALFTONE_PHASE_START), 0) << "no planes";
  EXPECT_EQ(again, untouched) << "refused calls and empty bands write nothing";
  EXPECT_EQ(call(first, w, h, 2, HALFTONE_PHASE_START), 0);
  EXPECT_EQ(std::vector<unsigned char>(first.begin() + static_cast<std::ptrdiff_t>(bytes), first.end()),
            std::vector<unsigned char>(4, kCanary)) << "wrote past the band";
  if (job) {
    EXPECT_EQ(call(again, w + 1, h, 2, HALFTONE_PHASE_MIDDLE), kRefused) << "wider than the job";
    EXPECT_EQ(call(again, w, h, 3, HALFTONE_PHASE_MIDDLE), kRefused) << "more planes than the job";
  }
  if (m.entry_kind == HALFTONE_ENTRY_BAND) {
    EXPECT_EQ(call(again, -1, h, 1, HALFTONE_PHASE_MIDDLE), kRefused) << "negative width";
    EXPECT_EQ(call(again, w, -4, 1, HALFTONE_PHASE_MIDDLE), kRefused) << "negative height";
  }
  EXPECT_EQ(again, untouched);
  EXPECT_EQ(call(again, w / 2, h, 1, HALFTONE_PHASE_MIDDLE), 0) << "narrower bands with fewer planes";
  EXPECT_EQ(call(again, w, h, 2, HALFTONE_PHASE_END), 0);
  again = untouched;
  if (job) {
    EXPECT_EQ(call(again, w, h, 2, HALFTONE_PHASE_MIDDLE), kRefused) << "the job has ended";
  }
  EXPECT_EQ(again, untouched);
  EXPECT_EQ(call(again, w, h, 2, HALFTONE_PHASE_START), 0);
  EXPECT_EQ(first, again) << "a new job repeats the first";
  EXPECT_EQ(call(again, w, h, 2, HALFTONE_PHASE_END), 0);
  halftone_set_fixed_time(-1);
}

std::vector<halftone_method_info> BandMethods() {
  auto methods = golden::Methods();
  std::erase_if(methods, [](const halftone_method_info& m) { return !golden::IsBandMethod(m); });
  return methods;
}
INSTANTIATE_TEST_SUITE_P(Registry, BandContract, testing::ValuesIn(BandMethods()), golden::MethodName);

}  // namespace
