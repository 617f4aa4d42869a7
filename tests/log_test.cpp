// The diagnostic log: default path, start line and line formats, silent failures.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "log/diagnostic_log.h"
#include "test_support.h"

namespace halftone {
namespace {

class LogTest : public ::testing::Test {
 protected:
  std::string Contents() const {
    std::ifstream f(path_, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
  }
  halftone_test::TempFolder dir_;
  std::string path_ = (dir_.path() / "host.txt").string();
};

const std::string kStartLine = "\t\xC8\xD5\xD6\xBE\xC6\xF4\xB6\xAF\xB3\xC9\xB9\xA6\xA3\xA1\r\n\r\n";

TEST(LogPath, ExtensionReplacedByTxt) {
  EXPECT_EQ(DefaultLogPath("C:\\Print\\host.exe"), "C:\\Print\\host.txt");
  EXPECT_EQ(DefaultLogPath("/opt/print/host"), "/opt/print/hosttxt");  // no dot: appended
  EXPECT_EQ(DefaultLogPath("/opt/print.d/host"), "/opt/print.txt");     // the last dot anywhere
  EXPECT_EQ(DefaultLogPath(""), "txt");
}

TEST_F(LogTest, StartLineIsTheGbkMessageAndTruncates) {
  {
    std::ofstream old(path_, std::ios::binary);
    old << "left over from an earlier run";
  }
  DiagnosticLog log;
  EXPECT_EQ(log.Open(path_.c_str()), 1);
  EXPECT_TRUE(log.enabled());
  EXPECT_EQ(Contents(), kStartLine);
}

TEST_F(LogTest, LineFormats) {
  DiagnosticLog log;
  ASSERT_EQ(log.Open(path_.c_str()), 1);
  EXPECT_EQ(log.Text("band 3"), 1);
  EXPECT_EQ(log.Text(""), 1);
  EXPECT_EQ(log.Hex(0x4E2Du), 1);
  EXPECT_EQ(log.Int(-20401), 1);
  EXPECT_EQ(log.Real(2.5), 1);
  EXPECT_EQ(log.Rect(1, -2, 30, 40), 1);
  EXPECT_EQ(log.Point(7, 8), 1);
  EXPECT_EQ(Contents(), kStartLine +
                            "\tband 3\r\n"
                            "\r\n"
                            "\tErrorCode 0x4E2D\r\n"
                            "\tErrorCode -20401\r\n"
                            "\tErrorCode 2.500000\r\n"
                            "\tRECT = (1,-2,30,40)\r\n"
                            "\tPOINT = (7,8)\r\n");
}

TEST_F(LogTest, LongTextIsCutButKeepsItsLineEnd) {
  DiagnosticLog log;
  ASSERT_EQ(log.Open(path_.c_str()), 1);
  ASSERT_EQ(log.Text(std::string(1000, 'x').c_str()), 1);
  const std::string line = Contents().substr(kStartLine.size());
  EXPECT_EQ(line.size(), kLogBufferSize - 1);
  EXPECT_EQ(line.substr(line.size() - 2), "\r\n");
  EXPECT_EQ(line[0], '\t');
}

TEST_F(LogTest, NeverOpenedLogWritesNothing) {
  DiagnosticLog log;
  EXPECT_TRUE(log.enabled());
  EXPECT_EQ(log.Text("lost"), 0);  // the empty path cannot be opened
  EXPECT_EQ(log.Point(1, 2), 0);
}

TEST_F(LogTest, FailedOpenDisablesTheLog) {
  DiagnosticLog log;
  const std::string missing = (dir_.path() / "no such folder" / "log.txt").string();
  EXPECT_EQ(log.Open(missing.c_str()), 0);
  EXPECT_FALSE(log.enabled());
  EXPECT_EQ(log.Int(1), 0);
  EXPECT_FALSE(std::filesystem::exists(missing));
}

}  // namespace
}  // namespace halftone
