// The JPEG reader of PageSource: grey, RGB and CMYK by scanlines through libjpeg.
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <vector>

#include "page_source.h"

#ifndef HALFTONE_HAVE_JPEG
#define HALFTONE_HAVE_JPEG 0
#endif
#if HALFTONE_HAVE_JPEG
// jpeglib.h leaves size_t and FILE to its includer.
#include <jpeglib.h>
#endif

namespace halftone_tool {

#if HALFTONE_HAVE_JPEG
namespace {

constexpr unsigned kMaxSide = 65536;

// libjpeg reports errors through error_exit, which must not return: it longjmps back into the
// guarded call. A warning about corrupt data (a truncated file among them) is an error here,
// where libjpeg would quietly paint the missing rows grey.
class JpegSource : public PageSource {
 public:
  ~JpegSource() override {
    if (created_) jpeg_destroy_decompress(&cinfo_);
    if (file_) std::fclose(file_);
  }

  std::string Open(const std::string& path) {
    path_ = path;
    file_ = std::fopen(path.c_str(), "rb");
    if (!file_) return "cannot open '" + path + "': " + std::strerror(errno);
    cinfo_.err = jpeg_std_error(&errors_.pub);
    errors_.pub.error_exit = OnError;
    errors_.pub.emit_message = OnMessage;
    if (!Start()) return Why();
    if (cinfo_.output_width == 0 || cinfo_.output_height == 0 || cinfo_.output_width > kMaxSide ||
        cinfo_.output_height > kMaxSide)
      return "'" + path + "' has an unsupported size";
    SampleKind kind = SampleKind::kGrey;
    if (cinfo_.out_color_space == JCS_CMYK) kind = cinfo_.saw_Adobe_marker ? SampleKind::kCmykInverted : SampleKind::kCmyk;
    else if (cinfo_.out_color_space == JCS_RGB) kind = SampleKind::kRgb;
    kind_ = kind;
    SetShape(static_cast<int>(cinfo_.output_width), static_cast<int>(cinfo_.output_height), kind);
    row_.resize(static_cast<std::size_t>(cinfo_.output_width) * static_cast<std::size_t>(cinfo_.output_components));
    return {};
  }

  std::string Read(std::uint8_t* band, int count, std::size_t stride) override {
    for (int y = 0; y < count; ++y) {
      if (!ReadRow() || errors_.damaged) return Why();
      SplitRow(kind_, row_.data(), cinfo_.output_components, width_,
               band + static_cast<std::size_t>(y) * static_cast<std::size_t>(planes()) * stride, stride);
    }
    return {};
  }

 private:
  struct Errors {
    jpeg_error_mgr pub;
    std::jmp_buf jump;
    bool damaged;
    char message[JMSG_LENGTH_MAX];
  };
  static void OnError(j_common_ptr cinfo) {
    auto* e = reinterpret_cast<Errors*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, e->message);
    std::longjmp(e->jump, 1);
  }
  static void OnMessage(j_common_ptr cinfo, int level) {
    auto* e = reinterpret_cast<Errors*>(cinfo->err);
    if (level >= 0 || e->damaged) return;
    e->damaged = true;
    (*cinfo->err->format_message)(cinfo, e->message);
  }

  bool Start() {
    if (setjmp(errors_.jump)) return false;
    jpeg_create_decompress(&cinfo_);
    created_ = true;
    jpeg_stdio_src(&cinfo_, file_);
    jpeg_read_header(&cinfo_, TRUE);
    switch (cinfo_.jpeg_color_space) {
      case JCS_GRAYSCALE: cinfo_.out_color_space = JCS_GRAYSCALE; break;
      case JCS_CMYK:
      case JCS_YCCK: cinfo_.out_color_space = JCS_CMYK; break;
      default: cinfo_.out_color_space = JCS_RGB; break;
    }
    jpeg_start_decompress(&cinfo_);
    return !errors_.damaged;
  }
  bool ReadRow() {
    if (setjmp(errors_.jump)) return false;
    JSAMPROW row = row_.data();
    return jpeg_read_scanlines(&cinfo_, &row, 1) == 1;
  }
  std::string Why() const {
    return "'" + path_ + "': " + (errors_.message[0] ? std::string(errors_.message) : std::string("damaged JPEG"));
  }

  std::string path_;
  std::FILE* file_ = nullptr;
  jpeg_decompress_struct cinfo_{};
  Errors errors_{};
  bool created_ = false;
  SampleKind kind_ = SampleKind::kGrey;
  std::vector<std::uint8_t> row_;
};

}  // namespace

std::string OpenJpegPage(const std::string& path, std::unique_ptr<PageSource>& source) {
  auto s = std::make_unique<JpegSource>();
  if (std::string err = s->Open(path); !err.empty()) return err;
  source = std::move(s);
  return {};
}

bool HaveJpeg() { return true; }

#else

std::string OpenJpegPage(const std::string& path, std::unique_ptr<PageSource>&) {
  return "'" + path + "' is a JPEG, and this build has no JPEG support (libjpeg was not found)";
}

bool HaveJpeg() { return false; }

#endif

}  // namespace halftone_tool
