#include "log/diagnostic_log.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/platform.h"

namespace halftone {
namespace {

// "Log started successfully!" in Chinese, GBK-encoded, as the host's tools expect it.
constexpr char kStartMessage[] = "\xC8\xD5\xD6\xBE\xC6\xF4\xB6\xAF\xB3\xC9\xB9\xA6\xA3\xA1";

// The stamp field of every line; the library leaves it empty.
constexpr char kStamp[] = "";

constexpr char kLogEnvironment[] = "HALFTONE_LOG";
constexpr char kLogExtension[] = "txt";

// A line formatted into one path-sized buffer (the start line fits; Text cuts its text to fit).
template <class... Args>
std::string Format(const char* format, Args... args) {
  char buffer[kLogBufferSize];
  const int n = std::snprintf(buffer, sizeof buffer, format, args...);
  return n < 0 ? std::string() : std::string(buffer, std::min(static_cast<std::size_t>(n), sizeof buffer - 1));
}

// Opens the file at `path` in `mode`, writes `bytes` and closes it; false when the file cannot
// be opened or the write falls short. Binary mode everywhere: the lines carry their own CR LF,
// which a text-mode stream on Windows would turn into CR CR LF.
bool WriteFile(const std::string& path, const char* mode, const std::string& bytes) {
  std::FILE* f = path.empty() ? nullptr : std::fopen(path.c_str(), mode);
  if (f == nullptr) return false;
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  std::fclose(f);
  return written;
}

}  // namespace

std::string DefaultLogPath(const std::string& executable_path) {
  std::string path = executable_path;
  // required: the last "." anywhere in the path, even one in a folder name.
  const std::size_t dot = path.rfind('.');
  if (dot != std::string::npos) path.resize(dot + 1);
  return path + kLogExtension;
}

int DiagnosticLog::Open(const char* path) {
  path_ = path != nullptr ? std::string(path) : DefaultLogPath(platform::ExecutablePath());
  if (path_.size() >= kLogBufferSize) path_.resize(kLogBufferSize - 1);
  const bool written = WriteFile(path_, "wb", Format("%s\t%s\r\n\r\n", kStamp, kStartMessage));
  if (!written) enabled_ = false;
  return written ? 1 : 0;
}

int DiagnosticLog::AppendLine(const std::string& line) {
  if (!enabled_) return 0;
  return WriteFile(path_, "ab+", line) ? 1 : 0;
}

int DiagnosticLog::Text(const char* text) {
  if (text == nullptr || *text == '\0') return AppendLine("\r\n");
  // The line is formatted into one path-sized buffer: a longer text is cut, the line end kept.
  const int room = static_cast<int>(kLogBufferSize) - 1 - static_cast<int>(std::strlen(kStamp)) - 3;
  return AppendLine(Format("%s\t%.*s\r\n", kStamp, room, text));
}

DiagnosticLog& ProcessLog() {
  static DiagnosticLog log = [] {
    DiagnosticLog l;
    if (const char* name = std::getenv(kLogEnvironment); name != nullptr) l.Open(*name != '\0' ? name : nullptr);
    return l;
  }();
  return log;
}

}  // namespace halftone
