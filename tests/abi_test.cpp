// The shared library exports exactly the names of the ABI list, undecorated, and nothing else.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <string>

#include "halftone/halftone.h"

namespace {

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

}  // namespace
