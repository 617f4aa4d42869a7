// Golden digests: every registry method on a fixed set of jobs (several widths, odd ones too,
// band heights, plane counts, multi-band jobs with a narrower middle band, two tone set-ups and
// loaded tables), every output byte and return code folded into one FNV-1a digest per method.
// Fast paths and threads must reproduce them bit for bit. When a NEW method joins the registry,
// print the table afresh with HALFTONE_GOLDEN_PRINT=1 and add its row; a changed digest of an
// existing method is a regression, never a reason to reprint.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <ostream>
#include <string>

#include "golden_jobs.h"
#include "test_support.h"

namespace {

const std::map<std::string, std::uint64_t>& Recorded() {
  static const std::map<std::string, std::uint64_t> table = {
      // GOLDEN TABLE BEGIN
      {"RoundFaxest", 0x4109f60439ef1741ull},
      {"RoundFaxest__", 0x4109f60439ef1741ull},
      {"FastGroup", 0xcc802f850402d26cull},
      {"FastGroup1", 0xa47e4225175c974eull},
      {"ArcistPump", 0x8d03776953cf327eull},
      {"Kaishanxing", 0x1e9107886f56776full},
      {"SymanOpening", 0x335a2dc3ebeb3b30ull},
      {"sdiufiavs", 0xb12f64980bc21d95ull},
      {"sdiufiavs1", 0xb01b34ce7acc619dull},
      {"mandfanes", 0x2fe35fe292e81661ull},
      {"orangecagn", 0xc8bf91544a601c71ull},
      {"jsdi6yruis", 0xb2b9a59027446365ull},
      {"irpduix7sg", 0x1fcd329599606931ull},
      {"hxkjsdi67x", 0xe83be4438e75be91ull},
      {"RoundPump", 0x5502baf4df9ec287ull},
      {"RoundPump1", 0x585a16e9bac90271ull},
      {"suiruiskao", 0x1e7089994b2724f5ull},
      {"suiruiskao2", 0x0c47d51a6e5083bdull},
      {"suiruiskao3", 0x0c47d51a6e5083bdull},
      {"suiruiskao4", 0x0c47d51a6e5083bdull},
      {"suiruiskao5", 0x9705f0bed5ee9445ull},
      {"suiruiskao6", 0xc1fdc7677f16522dull},
      {"suiruiskao7", 0x37762e0c0cb251a5ull},
      {"suiruiskao9", 0x77f9984ad441e9c1ull},
      {"suiruiskao10", 0xe843b3d0e36d80a5ull},
      {"CrisixOut_double", 0x83bb428a32b6c459ull},
      {"sdiufiavs2", 0xdb5da6e987a3e525ull},
      {"sdiufiavs3", 0xd03b74ed97a32a45ull},
      {"sdiufiavs4", 0xe137a40e3a9d6755ull},
      {"suiruiskao8", 0x6d82235b0c655319ull},
      {"suiruiskao11", 0xf1131161dfbaf325ull},
      {"highforces", 0xb9e635f5f02a0c51ull},
      {"Kaocosyx13", 0x633d05bc9ff67725ull},
      {"Kaocosyx14", 0x1947a6c7372ff170ull},
      {"Kaocosyx1", 0x61848597587c78d5ull},
      {"Kaocosyx10", 0x37c625fa8c736b79ull},
      {"CrisixOut", 0x20ec41563cef9741ull},
      {"CrisixOut31", 0x08a3a365d0201fabull},
      {"Sonicksure", 0xc32ae28fc3a3ba19ull},
      {"MutexWindow", 0xc32ae28fc3a3ba19ull},
      {"MutexWindow_Bak", 0xc32ae28fc3a3ba19ull},
      {"TextDownload", 0x4a9f77af7e0f51bdull},
      {"WindowText", 0xbcef8ff1e55016e5ull},
      {"Kaocosyx", 0x042135d2c50aad85ull},
      {"WindowTextAM1", 0xe04fc9d0120cbdb9ull},
      {"WindowTextAM", 0x7f9429dfee091ec5ull},
      {"sdicxx78xy", 0x24ff0cd2eb27b21eull},
      {"ixndiwkc76y", 0x43e8eae461c23240ull},
      {"ghskdjiekld", 0xb2e24d50cfef951full},
      {"tishduth29dmc", 0xdd5cc817a1a10ad2ull},
      {"nchsuw56xd", 0x7abd969cc5807b8cull},
      {"fdxin324c", 0xbb28ab79793d12b0ull},
      {"kajdjigc23kdh", 0x25568979388fdee4ull},
      // GOLDEN TABLE END
  };
  return table;
}

using golden::Methods;

std::uint64_t Digest(const halftone_method_info& m) {
  halftone_test::TempFolder host;
  EXPECT_EQ(golden::LoadFixedTables(host.path()), 0);
  const std::uint64_t d = golden::MethodDigest(m);
  halftone_set_host_folder(nullptr);
  return d;
}

class GoldenDigest : public testing::TestWithParam<halftone_method_info> {};

TEST_P(GoldenDigest, MatchesRecordedTable) {
  const halftone_method_info& m = GetParam();
  const std::uint64_t digest = Digest(m);
  const auto it = Recorded().find(m.name);
  ASSERT_NE(it, Recorded().end()) << m.name << " has no recorded digest; its digest is 0x" << std::hex << digest;
  EXPECT_EQ(digest, it->second) << m.name << " changed its output: 0x" << std::hex << digest;
}

INSTANTIATE_TEST_SUITE_P(Registry, GoldenDigest, testing::ValuesIn(Methods()),
                         golden::MethodName);

TEST(GoldenTable, EveryRecordedNameIsARegistryMethod) {
  const auto methods = Methods();
  for (const auto& [name, digest] : Recorded()) {
    bool found = false;
    for (const auto& m : methods) found = found || name == m.name;
    EXPECT_TRUE(found) << name << " is recorded but no longer in the registry";
  }
}

// HALFTONE_GOLDEN_PRINT=1 prints the table rows for every method, to add a new method's row.
TEST(GoldenTable, PrintOnRequest) {
  const char* print = std::getenv("HALFTONE_GOLDEN_PRINT");
  if (print == nullptr || std::string(print) != "1") GTEST_SKIP() << "set HALFTONE_GOLDEN_PRINT=1 to print the table";
  for (const auto& m : Methods())
    std::printf("      {\"%s\", 0x%016llxull},\n", m.name, static_cast<unsigned long long>(Digest(m)));
}

}  // namespace
