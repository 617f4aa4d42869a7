#include "usage.h"

namespace halftone_tool {

void PrintUsage(std::FILE* to, const char* default_method, const char* four_levels, const char* eight_levels,
                int columns) {
  std::fprintf(to,
               "Usage: halftone [INPUT] [-m METHOD] [OPTIONS] [-o OUT.png|OUT.tif] [--tiff DOTS.tif]\n"
               "       halftone sheet [INPUT] [-m METHOD]... [OPTIONS] [--columns N] [-o SHEET.png]\n"
               "       halftone tone (-m METHOD)... | --all [OPTIONS] [--patch N] [-o PLOT.png] [--csv FILE]\n"
               "       halftone analyze (-m METHOD)... | --all [OPTIONS] [--input PICTURE] [--dpi N] [--distance MM]\n"
               "                [--patch-levels LIST] [--patch N] [-o FOLDER]\n"
               "       halftone --list | --help | --version\n"
               "\n"
               "Halftones INPUT (PNG, TIFF, JPEG or binary PGM; the built-in test chart when omitted) with\n"
               "one of the library's methods. A colour picture becomes four planes C, M, Y, K that\n"
               "the method halftones as one job; a grey one a single plane. The preview draws every\n"
               "dot as its ink on white paper; the TIFF holds the dot planes, one page a plane.\n"
               "'sheet' puts every method side by side; 'tone' measures ink coverage at every level;\n"
               "'analyze' measures grain, regularity and visual error and ranks the methods.\n"
               "\n"
               "  -m, --method METHOD  method by export name (default %s); see --list.\n"
               "                       sheet: only these methods; tone: the methods to measure\n"
               "      --all            tone: measure every method\n"
               "      --mode N         print mode selecting the tone-curve pair (default 0)\n"
               "      --levels LIST    output levels, each followed by a comma\n"
               "                       (default %s, or %s for 4-bit methods)\n"
               "      --band-rows N    rows per band handed to the method (default 64)\n"
               "      --time SECONDS   seed the random sources from this time: same dots every run\n"
               "      --moths DIR      folder of matrix, pattern and table files for the screens\n"
               "                       (default: example files the command generates)\n"
               "  -o, --output FILE    preview .png, .ppm, .pgm or .pbm (default halftone.png); a\n"
               "                       .tif name writes the dot planes there and the preview as .png\n"
               "      --tiff FILE      also write the dot planes as a multi-page TIFF\n"
               "      --no-preview     write no preview (the dot planes only: give -o DOTS.tif or --tiff)\n"
               "      --preview-scale N  preview at 1/N of the size, each N x N block's inks averaged\n"
               "      --columns N      sheet: tiles a row (default %d)\n"
               "      --patch N        tone, analyze: side of each flat patch in pixels (default 256)\n"
               "      --csv FILE       tone: where the table goes (default: the plot's name, .csv)\n"
               "      --input FILE     analyze: the picture for the visual error (default: the chart)\n"
               "      --dpi N          analyze: the resolution the dots print at (default 600)\n"
               "      --distance MM    analyze: the viewing distance (default 300)\n"
               "      --patch-levels L analyze: the flat patches' input levels (default 8,24,...,248)\n"
               "  -q, --quiet          no progress bar\n"
               "      --list           list every method with its output depth and character\n"
               "  -h, --help           show this help\n"
               "      --version        show the library version\n"
               "\n"
               "Exit status: 0 done, 1 a file could not be read or written or a method failed,\n"
               "2 bad usage. See halftone(1).\n",
               default_method, four_levels, eight_levels, columns);
}

}  // namespace halftone_tool
