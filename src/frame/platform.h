// The few operating-system services the library needs, behind one small interface with a
// POSIX and a Win32 implementation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace halftone::platform {

// Full path of the host program's executable; empty when it cannot be found.
std::string ExecutablePath();

// The separator used between folder and file names: '\\' on Windows, '/' elsewhere.
char PathSeparator();

// The folder of the host program, ending in the separator; empty when the executable path
// holds no separator.
inline std::string ExecutableFolder() {
  const std::string path = ExecutablePath();
  const std::size_t cut = path.rfind(PathSeparator());
  if (cut == std::string::npos) return {};
  return path.substr(0, cut + 1);
}

// Whole-file read of at most `max_bytes` bytes. status is 0, kErrOpen when the file cannot be
// opened (missing, a folder, unreadable), kErrNoMemory when it is larger than max_bytes,
// kErrShortRead when reading fails. file_size is the size of the file as found.
struct FileBytes {
  int status = 0;
  std::uint64_t file_size = 0;
  std::vector<std::uint8_t> bytes;
};
FileBytes ReadWholeFile(const std::string& path, std::size_t max_bytes);

}  // namespace halftone::platform
