// A progress bar on stderr for work that takes a while: drawn only when stderr is a terminal,
// only once the work has run for a second, and never with --quiet.
#pragma once

#include <chrono>
#include <string>

namespace halftone_tool {

class Progress {
 public:
  Progress(std::string label, long long total, bool quiet);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Reports `done` units of the total finished; redraws at most ten times a second.
  void Update(long long done, const std::string& detail = {});
  // Clears the bar, if one was drawn.
  void Finish();

 private:
  using Clock = std::chrono::steady_clock;
  std::string label_;
  long long total_;
  bool enabled_;
  bool drawn_ = false;
  Clock::time_point start_;
  Clock::time_point last_draw_;
};

}  // namespace halftone_tool
