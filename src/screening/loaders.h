// Loaders of the screening tables: the threshold bitmap (and the bias derived from it), the
// 1-bit and 2-bit pattern stacks, the layer text table and the ordered-dither matrix.
//
// The files come from print hosts that may ship anything, so every size a file claims is
// checked before a table is written; no input makes a loader read or write outside a table.
// Where a short file leaves a table partly overwritten, that is the documented behaviour of
// the format (rows or patterns already read stay), not an accident.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

#include "frame/engine.h"
#include "screening/tables.h"

namespace halftone {

// A file that breaks its format (a size out of range, too many numbers, a token too long):
// refused before anything is written, the table keeps what it held.
inline constexpr int kErrMalformedFile = 20104;

// Sequential reads with an absolute seek, over a file or over bytes in memory. A seek past the
// end succeeds; the reads after it return 0 bytes.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  virtual std::size_t Read(void* dst, std::size_t n) = 0;
  virtual void Seek(std::uint64_t offset) = 0;
};

class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
  std::size_t Read(void* dst, std::size_t n) override;
  void Seek(std::uint64_t offset) override { pos_ = offset; }

 private:
  std::span<const std::uint8_t> bytes_;
  std::uint64_t pos_ = 0;
};

// A regular file opened for binary reading; anything else (missing, a folder, a device, no
// permission) does not open.
class FileSource final : public ByteSource {
 public:
  explicit FileSource(const std::string& path);
  ~FileSource() override;
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;
  bool is_open() const { return file_ != nullptr; }
  std::size_t Read(void* dst, std::size_t n) override;
  void Seek(std::uint64_t offset) override;

 private:
  std::FILE* file_ = nullptr;
  bool past_end_ = false;
};

// ---- 8-bit threshold bitmap ------------------------------------------------------------------
// Reads the 14-byte file header and the 40-byte information header (kErrShortRead if either is
// incomplete), takes the pixel offset, width and height from them, then reads `height` rows of
// `width` bytes from the pixel offset, bottom row first, into the bitmap. A short row ends the
// load with kErrShortRead and keeps the rows read before it. A width or height below 0 or above
// 256 is refused with kErrMalformedFile before any row is written. With `derive_bias`, a
// complete load also rewrites the whole bias matrix from the whole bitmap.
int ReadBitmapMatrix(ScreeningTables& tables, ByteSource& source, bool derive_bias);

// ---- Pattern stacks --------------------------------------------------------------------------
enum class PatternDepth { kMono, kDuo };

// Checks the pattern width a (pixels) and height b (rows): 0 < a <= 256 and a multiple of the
// pixels a byte holds (8 or 4), 0 < b <= 256. Valid sizes are written to the pattern geometry
// together with the edge masks of that depth; invalid ones give kErrMalformedFile and change
// nothing.
int DescribePatternStack(ScreeningTables& tables, PatternDepth depth, int a, int b);
// Reads the 256 patterns of a x b pixels (checked as above), the file's first pattern into the
// level-255 slot and its last into slot 0. A short read ends the load with kErrShortRead,
// keeping the patterns and rows read. After a complete read the 2-bit stack clears its
// level-255 slot.
int ReadPatternStack(ScreeningTables& tables, PatternDepth depth, int a, int b, ByteSource& source);

// ---- Layer text table ------------------------------------------------------------------------
// Largest text table accepted: room for every number at the longest token, with slack.
inline constexpr std::size_t kLayerFileMaxBytes = 8u << 20;
inline constexpr std::size_t kLayerTokenMaxChars = 19;
inline constexpr std::size_t kLayerNumbers = std::size_t{kLayerCount} * kLayerTile * kLayerTile;

// Parses the whole file. An empty file, more than 65,536 numbers or a token longer than 19
// characters is refused with kErrMalformedFile and leaves the table as it was; otherwise the
// table is cleared and refilled.
int ParseLayerTable(ScreeningTables& tables, std::span<const std::uint8_t> bytes);

// ---- Ordered-dither matrix -------------------------------------------------------------------
void BuildBayerMatrix(ScreeningTables& tables);

// ---- Whole loads from the host's Moths folder --------------------------------------------------
// Each returns the code it determined (the exports record it for halftone_last_load_status).
// A null name does not open (kErrOpen).
int LoadBitmapFile(Engine& engine, const char* name, bool derive_bias);
int LoadPatternFile(Engine& engine, PatternDepth depth, const char* name, int a, int b);
int LoadLayerFile(Engine& engine, const char* name);

}  // namespace halftone
