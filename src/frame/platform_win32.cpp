#include <windows.h>

#include <new>
#include <utility>

#include "frame/band.h"
#include "frame/platform.h"

namespace halftone::platform {

std::string ExecutablePath() {
  char buf[MAX_PATH] = {};
  DWORD n = ::GetModuleFileNameA(nullptr, buf, MAX_PATH);
  if (n == 0 || n >= MAX_PATH) return {};
  return std::string(buf, n);
}

char PathSeparator() { return '\\'; }

FileBytes ReadWholeFile(const std::string& path, std::size_t max_bytes) {
  FileBytes out;
  HANDLE file = ::CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    out.status = kErrOpen;
    return out;
  }
  // Closes the file and hands back what was read, with `status`.
  const auto closed = [&](int status) {
    ::CloseHandle(file);
    out.status = status;
    return std::move(out);
  };
  LARGE_INTEGER size{};
  if (!::GetFileSizeEx(file, &size) || size.QuadPart < 0) return closed(kErrShortRead);
  out.file_size = static_cast<std::uint64_t>(size.QuadPart);
  if (out.file_size > max_bytes) return closed(kErrNoMemory);
  try {
    out.bytes.resize(static_cast<std::size_t>(out.file_size));
  } catch (const std::bad_alloc&) {
    return closed(kErrNoMemory);
  }
  DWORD got = 0;
  BOOL ok = out.bytes.empty() ? TRUE
                              : ::ReadFile(file, out.bytes.data(), static_cast<DWORD>(out.bytes.size()), &got, nullptr);
  const bool short_read = !ok || got != out.bytes.size();
  if (short_read) out.bytes.resize(ok ? got : 0);
  return closed(short_read ? kErrShortRead : kOk);
}

}  // namespace halftone::platform
