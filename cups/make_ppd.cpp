// Writes the PPD of a printer queue whose last filter is rastertohalftone, its method choices
// taken from the library's registry, so a new method is offered without an edit here.
//   halftone_make_ppd OUT.ppd
#include <cstdio>
#include <string>

#include "filter_options.h"
#include "halftone/halftone.h"
#include "runner.h"

namespace {

// Page sizes in points; the printable area leaves a margin of kMargin points all round.
struct PageSize {
  const char* name;
  const char* text;
  int width, height;
};
constexpr PageSize kPageSizes[] = {{"A4", "A4", 595, 842}, {"Letter", "US Letter", 612, 792}, {"Legal", "US Legal", 612, 1008}, {"A3", "A3", 842, 1191}};
constexpr const char* kDefaultPageSize = "A4";
constexpr int kMargin = 12;
constexpr int kResolutions[] = {150, 300, 600, 720, 1200};
constexpr int kDefaultResolution = 300;

// CUPS raster colour spaces the filter takes (cupsColorSpace values).
constexpr int kSpaceK = 3;
constexpr int kSpaceCmyk = 6;

void Ui(std::FILE* f, const char* keyword, const char* text, int order) {
  std::fprintf(f, "*OpenUI *%s/%s: PickOne\n*OrderDependency: %d AnySetup *%s\n", keyword, text, order, keyword);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUT.ppd\n", argv[0]);
    return 2;
  }
  std::FILE* f = std::fopen(argv[1], "w");
  if (!f) {
    std::perror(argv[1]);
    return 1;
  }
  const std::string version = halftone_version();
  std::fprintf(f,
               "*PPD-Adobe: \"4.3\"\n"
               "*%% Generated from the halftone library's method registry (version %s).\n"
               "*FormatVersion: \"4.3\"\n"
               "*FileVersion: \"%s\"\n"
               "*LanguageVersion: English\n"
               "*LanguageEncoding: ISOLatin1\n"
               "*PCFileName: \"HALFTONE.PPD\"\n"
               "*Manufacturer: \"Generic\"\n"
               "*Product: \"(Halftone Dot Planes)\"\n"
               "*ModelName: \"Generic Halftone Dot Planes\"\n"
               "*ShortNickName: \"Generic Halftone Dot Planes\"\n"
               "*NickName: \"Generic Halftone Dot Planes, halftone %s\"\n"
               "*PSVersion: \"(3010.000) 0\"\n"
               "*LanguageLevel: \"3\"\n"
               "*ColorDevice: True\n"
               "*DefaultColorSpace: CMYK\n"
               "*FileSystem: False\n"
               "*Throughput: \"1\"\n"
               "*LandscapeOrientation: Plus90\n"
               "*TTRasterizer: Type42\n"
               "*cupsVersion: 2.4\n"
               "*cupsLanguages: \"en\"\n"
               "*cupsFilter2: \"application/vnd.cups-raster application/vnd.cups-halftone-dots 100 rastertohalftone\"\n",
               version.c_str(), version.c_str(), version.c_str());

  Ui(f, "PageSize", "Media Size", 10);
  std::fprintf(f, "*DefaultPageSize: %s\n", kDefaultPageSize);
  for (const auto& p : kPageSizes)
    std::fprintf(f, "*PageSize %s/%s: \"<</PageSize[%d %d]/ImagingBBox null>>setpagedevice\"\n", p.name, p.text, p.width, p.height);
  std::fprintf(f, "*CloseUI: *PageSize\n");
  Ui(f, "PageRegion", "Media Size", 10);
  std::fprintf(f, "*DefaultPageRegion: %s\n", kDefaultPageSize);
  for (const auto& p : kPageSizes)
    std::fprintf(f, "*PageRegion %s/%s: \"<</PageSize[%d %d]/ImagingBBox null>>setpagedevice\"\n", p.name, p.text, p.width, p.height);
  std::fprintf(f, "*CloseUI: *PageRegion\n*DefaultImageableArea: %s\n", kDefaultPageSize);
  for (const auto& p : kPageSizes)
    std::fprintf(f, "*ImageableArea %s/%s: \"%d %d %d %d\"\n", p.name, p.text, kMargin, kMargin, p.width - kMargin, p.height - kMargin);
  std::fprintf(f, "*DefaultPaperDimension: %s\n", kDefaultPageSize);
  for (const auto& p : kPageSizes) std::fprintf(f, "*PaperDimension %s/%s: \"%d %d\"\n", p.name, p.text, p.width, p.height);

  Ui(f, "Resolution", "Resolution", 10);
  std::fprintf(f, "*DefaultResolution: %ddpi\n", kDefaultResolution);
  for (int dpi : kResolutions)
    std::fprintf(f, "*Resolution %ddpi/%d DPI: \"<</HWResolution[%d %d]>>setpagedevice\"\n", dpi, dpi, dpi, dpi);
  std::fprintf(f, "*CloseUI: *Resolution\n");

  // The continuous-tone raster the filter is fed: 8-bit CMYK, or 8-bit black ink for grey.
  Ui(f, "ColorModel", "Colour Mode", 10);
  std::fprintf(f,
               "*DefaultColorModel: CMYK\n"
               "*ColorModel CMYK/Colour: \"<</cupsColorOrder 0/cupsColorSpace %d/cupsBitsPerColor 8>>setpagedevice\"\n"
               "*ColorModel Gray/Grey: \"<</cupsColorOrder 0/cupsColorSpace %d/cupsBitsPerColor 8>>setpagedevice\"\n"
               "*CloseUI: *ColorModel\n",
               kSpaceCmyk, kSpaceK);

  // The filter reads these from the job's options; the PostScript code is empty.
  Ui(f, "HalftoneMethod", "Halftoning Method", 20);
  std::fprintf(f, "*DefaultHalftoneMethod: %s\n", halftone_cups::kDefaultMethod);
  for (const auto& m : halftone_tool::ListMethods())
    std::fprintf(f, "*HalftoneMethod %s/%s (%d-bit): \"\"\n", m.name, m.name, m.output_bits);
  std::fprintf(f, "*CloseUI: *HalftoneMethod\n");
  Ui(f, "HalftoneMode", "Print Mode", 20);
  std::fprintf(f, "*DefaultHalftoneMode: 0\n");
  for (int mode = 0; mode < halftone_cups::kPpdModes; ++mode) std::fprintf(f, "*HalftoneMode %d/Mode %d: \"\"\n", mode, mode);
  std::fprintf(f, "*CloseUI: *HalftoneMode\n");

  std::fprintf(f, "*DefaultFont: Courier\n*Font Courier: Standard \"(002.004S)\" Standard ROM\n*%% End of halftone.ppd\n");
  const bool ok = std::fclose(f) == 0;
  return ok ? 0 : 1;
}
