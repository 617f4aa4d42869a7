// A small text log for diagnosing the library. Switched off as built: nothing in the library
// opens it, and the only line calls (the row and pixel dumps of two random-split diffusion
// methods) are compiled out.
//
// To switch it on, build with -DHALFTONE_DIAGNOSTIC_DUMP=1 and set the environment variable
// HALFTONE_LOG before the first dump: to a file name, or to an empty value for the default
// file, the host program's path with its extension replaced by "txt". The variable is read
// once, when the library first needs the log. Halftoning never depends on the log.
//
// Every line is a stamp field (always empty), a tab, the text and CR LF; each line opens,
// writes and closes the file on its own, so the file is complete after every line.
#pragma once

#include <string>

#ifndef HALFTONE_DIAGNOSTIC_DUMP
#define HALFTONE_DIAGNOSTIC_DUMP 0
#endif

namespace halftone {

// Compile-time switch of the dump call sites.
inline constexpr bool kDiagnosticDump = HALFTONE_DIAGNOSTIC_DUMP != 0;

// Size of the path and text buffers the log formats into.
inline constexpr std::size_t kLogBufferSize = 260;

// The default log file of a host program: its path cut after the last "." with "txt"
// appended; a path without "." gets "txt" appended directly.
std::string DefaultLogPath(const std::string& executable_path);

class DiagnosticLog {
 public:
  // Creates (or truncates) the log at `path`, or at the default path when null, and writes
  // the start line. A file that cannot be created or written disables the log. Returns 1
  // when the start line was written, 0 otherwise.
  int Open(const char* path);

  // One line; 1 when written, 0 when the log is disabled or the write failed.
  int Text(const char* text);  // an empty text writes a bare CR LF

  bool enabled() const { return enabled_; }

 private:
  int AppendLine(const std::string& line);

  std::string path_;
  bool enabled_ = true;
};

// The process-wide log. Its first use reads HALFTONE_LOG and opens the named file when set.
DiagnosticLog& ProcessLog();

}  // namespace halftone
