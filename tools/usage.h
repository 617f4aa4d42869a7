// The halftone command's --help text, with its defaults filled in.
#pragma once

#include <cstdio>

namespace halftone_tool {

void PrintUsage(std::FILE* to, const char* default_method, const char* four_levels, const char* eight_levels,
                int columns);

}  // namespace halftone_tool
