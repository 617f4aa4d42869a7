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

// The folder of the host program, ending in the platform's separator ('\\' on Windows, '/'
// elsewhere); empty when the executable path holds no separator.
std::string ExecutableFolder();

// The separator used between folder and file names.
char PathSeparator();

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
