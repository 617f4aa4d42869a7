#include "progress.h"

#include <algorithm>
#include <cstdio>

#ifdef _WIN32
#include <io.h>
#define HALFTONE_ISATTY(fd) _isatty(fd)
#define HALFTONE_FILENO(f) _fileno(f)
#else
#include <unistd.h>
#define HALFTONE_ISATTY(fd) isatty(fd)
#define HALFTONE_FILENO(f) fileno(f)
#endif

namespace halftone_tool {
namespace {

constexpr auto kQuietStart = std::chrono::seconds(1);
constexpr auto kRedrawEvery = std::chrono::milliseconds(100);
constexpr int kBarWidth = 30;
constexpr std::size_t kLineWidth = 78;

}  // namespace

Progress::Progress(std::string label, long long total, bool quiet)
    : label_(std::move(label)),
      total_(std::max(1LL, total)),
      enabled_(!quiet && HALFTONE_ISATTY(HALFTONE_FILENO(stderr))),
      start_(Clock::now()),
      last_draw_(start_) {}

Progress::~Progress() { Finish(); }

void Progress::Update(long long done, const std::string& detail) {
  if (!enabled_) return;
  const auto now = Clock::now();
  if (now - start_ < kQuietStart || (drawn_ && now - last_draw_ < kRedrawEvery)) return;
  last_draw_ = now;
  drawn_ = true;
  done = std::clamp(done, 0LL, total_);
  const int filled = static_cast<int>(done * kBarWidth / total_);
  std::string line = label_ + " [" + std::string(static_cast<std::size_t>(filled), '#') +
                     std::string(static_cast<std::size_t>(kBarWidth - filled), ' ') + "] " +
                     std::to_string(done * 100 / total_) + "%";
  if (!detail.empty()) line += " " + detail;
  if (line.size() > kLineWidth) line.resize(kLineWidth);
  line.resize(kLineWidth, ' ');
  std::fprintf(stderr, "\r%s", line.c_str());
  std::fflush(stderr);
}

void Progress::Finish() {
  if (!drawn_) return;
  std::fprintf(stderr, "\r%s\r", std::string(kLineWidth, ' ').c_str());
  std::fflush(stderr);
  drawn_ = false;
}

}  // namespace halftone_tool
