// Screening tables for the halftone command: the methods that screen against matrices, pattern
// stacks or layer tables need them loaded before they run.
#pragma once

#include <string>

namespace halftone_tool {

// Makes sure the tables named by `mask` (HALFTONE_TABLE_* bits) are loaded through the
// library's loaders, from `moths_dir` when given, otherwise from example files the command
// generates. Returns 0, or nonzero with `message` saying what failed.
int PrepareTables(unsigned mask, const std::string& moths_dir, std::string& message);

}  // namespace halftone_tool
