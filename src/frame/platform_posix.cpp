#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <utility>

#include "frame/band.h"
#include "frame/platform.h"

namespace halftone::platform {

std::string ExecutablePath() {
  std::vector<char> buf(4096);
  ssize_t n = ::readlink("/proc/self/exe", buf.data(), buf.size() - 1);
  if (n <= 0) return {};
  return std::string(buf.data(), static_cast<std::size_t>(n));
}

char PathSeparator() { return '/'; }

FileBytes ReadWholeFile(const std::string& path, std::size_t max_bytes) {
  FileBytes out;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    out.status = kErrOpen;
    return out;
  }
  // Closes the file and hands back what was read, with `status`.
  const auto closed = [&](int status) {
    ::close(fd);
    out.status = status;
    return std::move(out);
  };
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return closed(kErrOpen);
  out.file_size = static_cast<std::uint64_t>(st.st_size);
  if (out.file_size > max_bytes) return closed(kErrNoMemory);
  try {
    out.bytes.resize(static_cast<std::size_t>(out.file_size));
  } catch (const std::bad_alloc&) {
    return closed(kErrNoMemory);
  }
  std::size_t got = 0;
  while (got < out.bytes.size()) {
    ssize_t n = ::read(fd, out.bytes.data() + got, out.bytes.size() - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<std::size_t>(n);
  }
  const bool short_read = got != out.bytes.size();
  out.bytes.resize(got);
  return closed(short_read ? kErrShortRead : kOk);
}

}  // namespace halftone::platform
