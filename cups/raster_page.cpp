#include "raster_page.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "page_source.h"
#include "runner.h"

namespace halftone_cups {
namespace {

using halftone_tool::SampleKind;

constexpr unsigned kMaxSide = 65536;
constexpr const char* kCancelled = "cancelled";

struct InputLayout {
  SampleKind kind = SampleKind::kGrey;
  int colours = 1;  // samples a pixel in the raster
  bool banded = false;
};

std::string Layout(const cups_page_header2_t& h, InputLayout& l) {
  switch (h.cupsColorSpace) {
    case CUPS_CSPACE_K: l.kind = SampleKind::kGreyInverted, l.colours = 1; break;
    case CUPS_CSPACE_W:
    case CUPS_CSPACE_SW: l.kind = SampleKind::kGrey, l.colours = 1; break;
    case CUPS_CSPACE_RGB:
    case CUPS_CSPACE_SRGB:
    case CUPS_CSPACE_ADOBERGB: l.kind = SampleKind::kRgb, l.colours = 3; break;
    case CUPS_CSPACE_CMYK: l.kind = SampleKind::kCmyk, l.colours = 4; break;
    default:
      return "colour space " + std::to_string(h.cupsColorSpace) + " is not taken (K, CMYK, RGB, sRGB or grey)";
  }
  if (h.cupsBitsPerColor != 8) return std::to_string(h.cupsBitsPerColor) + " bits a colour; only 8 are taken";
  if (h.cupsColorOrder != CUPS_ORDER_CHUNKED && h.cupsColorOrder != CUPS_ORDER_BANDED)
    return "planar colour order is not taken (chunky or banded only)";
  if (h.cupsWidth == 0 || h.cupsHeight == 0 || h.cupsWidth > kMaxSide || h.cupsHeight > kMaxSide)
    return "a page of " + std::to_string(h.cupsWidth) + " x " + std::to_string(h.cupsHeight) + " pixels";
  if (h.cupsBytesPerLine != h.cupsWidth * static_cast<unsigned>(l.colours))
    return "rows of " + std::to_string(h.cupsBytesPerLine) + " bytes for " + std::to_string(h.cupsWidth) + " pixels";
  l.banded = h.cupsColorOrder == CUPS_ORDER_BANDED && l.colours > 1;
  return {};
}

// The dot page's planes in CUPS's planar order: plane one goes out as its rows come, the others
// wait in temporary files until plane one is complete.
class PlanarPage {
 public:
  ~PlanarPage() {
    for (std::FILE* f : spools_)
      if (f) std::fclose(f);
  }

  std::string Start(cups_raster_t* out, const cups_page_header2_t& h) {
    out_ = out;
    planes_ = h.cupsNumColors;
    height_ = h.cupsHeight;
    row_bytes_ = h.cupsBytesPerLine;
    line_.assign(row_bytes_, 0);
    if (!cupsRasterWriteHeader2(out, const_cast<cups_page_header2_t*>(&h))) return "cannot write the page header";
    for (unsigned p = 1; p < planes_; ++p) {
      spools_.push_back(std::tmpfile());
      if (!spools_.back()) return "cannot make a temporary file for a colour plane";
    }
    return {};
  }

  std::string Band(const std::uint8_t* band, int count, std::size_t stride) {
    for (std::size_t y = 0; y < static_cast<std::size_t>(count); ++y, ++rows_)
      for (std::size_t p = 0; p < planes_; ++p)
        if (std::string err = Put(p, band + (y * planes_ + p) * stride); !err.empty()) return err;
    return {};
  }

  // Rows not halftoned (a cancelled page) go out without ink; then the waiting planes follow.
  std::string Finish() {
    std::fill(line_.begin(), line_.end(), 0);
    for (; rows_ < height_; ++rows_)
      for (std::size_t p = 0; p < planes_; ++p)
        if (std::string err = Put(p, line_.data()); !err.empty()) return err;
    for (std::FILE* f : spools_) {
      std::rewind(f);
      for (unsigned y = 0; y < height_; ++y) {
        if (std::fread(line_.data(), 1, row_bytes_, f) != row_bytes_) return "cannot read back a colour plane";
        if (cupsRasterWritePixels(out_, line_.data(), row_bytes_) != row_bytes_) return "cannot write the dot page";
      }
    }
    return {};
  }

 private:
  std::string Put(std::size_t plane, const std::uint8_t* row) {
    // The library's rows already have the raster's bit order (first pixel in the high bits);
    // only the padding to four bytes is left off.
    if (plane == 0) {
      std::memcpy(line_.data(), row, row_bytes_);
      return cupsRasterWritePixels(out_, line_.data(), row_bytes_) == row_bytes_ ? std::string{} : "cannot write the dot page";
    }
    return std::fwrite(row, 1, row_bytes_, spools_[plane - 1]) == row_bytes_ ? std::string{} : "cannot spool a colour plane";
  }

  cups_raster_t* out_ = nullptr;
  unsigned planes_ = 1, height_ = 0, row_bytes_ = 0, rows_ = 0;
  std::vector<std::FILE*> spools_;
  std::vector<std::uint8_t> line_;
};

}  // namespace

std::string DotPageHeader(const cups_page_header2_t& in, int bits, cups_page_header2_t& out) {
  InputLayout l;
  if (std::string err = Layout(in, l); !err.empty()) return err;
  const unsigned planes = static_cast<unsigned>(halftone_tool::PlanesOf(l.kind));
  out = in;
  out.cupsBitsPerColor = static_cast<unsigned>(bits);
  out.cupsBitsPerPixel = static_cast<unsigned>(bits);
  out.cupsColorOrder = CUPS_ORDER_PLANAR;
  out.cupsColorSpace = planes == 4 ? CUPS_CSPACE_CMYK : CUPS_CSPACE_K;
  out.cupsNumColors = planes;
  out.cupsBytesPerLine = (in.cupsWidth * static_cast<unsigned>(bits) + 7) / 8;
  return {};
}

std::string HalftonePage(cups_raster_t* in, const cups_page_header2_t& header, cups_raster_t* out,
                         const FilterOptions& options, const std::atomic<bool>& cancel, bool& cancelled) {
  cancelled = false;
  InputLayout layout;
  if (std::string err = Layout(header, layout); !err.empty()) return err;
  cups_page_header2_t dots{};
  if (std::string err = DotPageHeader(header, options.method.output_bits, dots); !err.empty()) return err;
  PlanarPage page;
  if (std::string err = page.Start(out, dots); !err.empty()) return err;

  const int width = static_cast<int>(header.cupsWidth), height = static_cast<int>(header.cupsHeight);
  const int planes = static_cast<int>(dots.cupsNumColors);
  const std::size_t bytes = header.cupsBytesPerLine, segment = header.cupsWidth;
  std::vector<std::uint8_t> line(bytes), chunky(layout.banded ? bytes : 0);
  int row = 0;
  auto read = [&](std::uint8_t* band, int count, std::size_t stride) -> std::string {
    for (int y = 0; y < count; ++y, ++row) {
      if (cancel.load()) return kCancelled;
      if (cupsRasterReadPixels(in, line.data(), static_cast<unsigned>(bytes)) != bytes)
        return cancel.load() ? kCancelled : "the raster ends early, at row " + std::to_string(row + 1) + " of " + std::to_string(height);
      const std::uint8_t* px = line.data();
      if (layout.banded) {
        // Banded rows hold each colour's samples in turn: interleave them.
        for (std::size_t x = 0; x < segment; ++x)
          for (std::size_t c = 0; c < static_cast<std::size_t>(layout.colours); ++c)
            chunky[x * static_cast<std::size_t>(layout.colours) + c] = line[c * segment + x];
        px = chunky.data();
      }
      halftone_tool::SplitRow(layout.kind, px, layout.colours, width,
                              band + static_cast<std::size_t>(y) * static_cast<std::size_t>(planes) * stride, stride);
    }
    return {};
  };
  halftone_tool::RunOptions run;
  run.mode = options.mode;
  run.levels = options.levels;
  run.band_rows = options.band_rows;
  run.fixed_time = options.fixed_time;
  run.overlap = true;
  std::string err = halftone_tool::RunMethodStreamed(
      options.method, width, height, planes, run, read,
      {[&](const std::uint8_t* band, int count, std::size_t stride) { return page.Band(band, count, stride); }});
  if (err == kCancelled) {
    cancelled = true;
    err.clear();
  }
  if (!err.empty()) return err;
  return page.Finish();
}

}  // namespace halftone_cups
