#include "tiff_io.h"

#include "page_sink.h"

#include <cstdarg>
#include <cstdio>

#ifndef HALFTONE_HAVE_TIFF
#define HALFTONE_HAVE_TIFF 0
#endif
#if HALFTONE_HAVE_TIFF
#include <tiffio.h>
#endif

namespace halftone_tool {
namespace {

std::string& LastTiffError() {
  static std::string message;
  return message;
}

#if HALFTONE_HAVE_TIFF
void KeepTiffError(const char* module, const char* fmt, va_list ap) {
  char text[512];
  std::vsnprintf(text, sizeof text, fmt, ap);
  LastTiffError() = module ? std::string(module) + ": " + text : std::string(text);
}
#endif

}  // namespace

bool HaveTiff() { return HALFTONE_HAVE_TIFF != 0; }

void ListenToTiff() {
#if HALFTONE_HAVE_TIFF
  TIFFSetErrorHandler(KeepTiffError);
  TIFFSetWarningHandler(nullptr);
#endif
  LastTiffError().clear();
}

std::string TiffErrorSuffix() { return LastTiffError().empty() ? std::string{} : " (" + LastTiffError() + ")"; }

std::string WriteDotTiff(const std::string& path, const DotPlanes& dots, const std::vector<std::string>& names,
                         const std::string& description) {
  std::vector<std::string> pages(dots.planes.size());
  for (std::size_t p = 0; p < pages.size(); ++p) pages[p] = p < names.size() ? names[p] : "Plane " + std::to_string(p + 1);
  DotTiffStream out;
  if (std::string err = out.Open(path, dots.pixels, dots.rows, dots.bits, pages, description); !err.empty()) return err;
  for (std::size_t p = 0; p < pages.size(); ++p)
    for (int y = 0; y < dots.rows; ++y)
      if (std::string err = out.Row(static_cast<int>(p), dots.planes[p].data() + static_cast<std::size_t>(y) * dots.stride);
          !err.empty())
        return err;
  return out.Close();
}

}  // namespace halftone_tool
