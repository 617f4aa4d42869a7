#include "screening/loaders.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "frame/band.h"
#include "frame/platform.h"
#include "screening/screen_tables.h"

namespace halftone {

// ---- Byte sources ----------------------------------------------------------------------------

std::size_t MemorySource::Read(void* dst, std::size_t n) {
  if (pos_ >= bytes_.size()) return 0;
  const std::size_t got = std::min<std::size_t>(n, bytes_.size() - static_cast<std::size_t>(pos_));
  if (got != 0) std::memcpy(dst, bytes_.data() + pos_, got);
  pos_ += got;
  return got;
}

FileSource::FileSource(const std::string& path) {
  std::error_code ec;
  // A folder opens for reading on some systems and a device may never end: only regular files
  // are table files.
  if (std::filesystem::is_regular_file(path, ec) && !ec) file_ = std::fopen(path.c_str(), "rb");
}

FileSource::~FileSource() {
  if (file_ != nullptr) std::fclose(file_);
}

std::size_t FileSource::Read(void* dst, std::size_t n) {
  if (file_ == nullptr || past_end_ || n == 0) return 0;
  return std::fread(dst, 1, n, file_);
}

void FileSource::Seek(std::uint64_t offset) {
  if (file_ == nullptr) return;
  // After a seek past the end fread finds nothing; an offset beyond what fseek can name reads
  // nothing either.
  past_end_ =
      offset > static_cast<std::uint64_t>(LONG_MAX) || std::fseek(file_, static_cast<long>(offset), SEEK_SET) != 0;
}

namespace {

// ---- 8-bit threshold bitmap ------------------------------------------------------------------

constexpr std::size_t kHeaderBytes = 14 + 40;  // the file header, then the information header
constexpr std::size_t kPixelOffsetAt = 10;
constexpr std::size_t kWidthAt = 14 + 4;
constexpr std::size_t kHeightAt = 14 + 8;

std::uint32_t LittleEndian32(const std::uint8_t* p) {
  return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
         static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}

// Bias of a threshold: (m - 127) * 0.4 truncated toward zero, -50 for 0 up to 51 for 255.
constexpr double kBiasScale = 0.4;
constexpr int kBiasCentre = 127;

void DeriveBias(ScreeningTables& tables) {
  for (std::size_t r = 0; r < kMatrixSize; ++r)
    for (std::size_t c = 0; c < kMatrixSize; ++c)
      tables.bias[r][c] = static_cast<std::int16_t>((tables.bitmap[r][c] - kBiasCentre) * kBiasScale);
}

// ---- Pattern stacks --------------------------------------------------------------------------

struct StackLayout {
  int bits_per_pixel;
  EdgeMasks masks;
};

constexpr StackLayout kMonoLayout{1,
                                  {{0x00, 0x80, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC, 0xFE},
                                   {0xFF, 0x7F, 0x3F, 0x1F, 0x0F, 0x07, 0x03, 0x01}}};
constexpr StackLayout kDuoLayout{2,
                                 {{0x00, 0xC0, 0xF0, 0xFC, 0xFF, 0xFF, 0xFF, 0xFF},
                                  {0xFF, 0x3F, 0x0F, 0x03, 0x00, 0x00, 0x00, 0x00}}};

const StackLayout& LayoutOf(PatternDepth depth) { return depth == PatternDepth::kMono ? kMonoLayout : kDuoLayout; }

std::uint8_t* PatternRowOf(ScreeningTables& tables, PatternDepth depth, std::size_t slot, std::size_t row) {
  return depth == PatternDepth::kMono ? tables.mono[slot][row].data() : tables.duo[slot][row].data();
}

bool ValidPatternSize(const StackLayout& layout, int a, int b) {
  return a > 0 && a <= kMatrixSize && a % (8 / layout.bits_per_pixel) == 0 && b > 0 && b <= kMatrixSize;
}

static_assert(sizeof(ScreeningTables::duo[0]) == std::size_t{kMatrixSize} * kDuoRowBytes);

// ---- Layer text table ------------------------------------------------------------------------

constexpr std::uint8_t kSpace = 0x20;
constexpr std::uint8_t kCarriageReturn = 0x0D;
bool EndsToken(std::uint8_t c) { return c == kSpace || c == kCarriageReturn; }

// Calls on_token(first, length) for each token: a run of bytes up to a space or carriage
// return (line feeds, tabs and signs join it). required: the last byte of the file is never
// looked at, so a number needs a separator and one more byte after it. Stops with false at the
// first token longer than kLayerTokenMaxChars.
template <class OnToken>
bool ForEachToken(std::span<const std::uint8_t> bytes, OnToken&& on_token) {
  std::size_t length = 0;
  for (std::size_t p = 0; p + 1 < bytes.size(); ++p) {
    if (EndsToken(bytes[p])) {
      if (length != 0) on_token(bytes.data() + (p - length), length);
      length = 0;
    } else if (++length > kLayerTokenMaxChars) {
      return false;
    }
  }
  return true;
}

bool IsCSpace(std::uint8_t c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

// atoi over a token: leading white space, a sign, digits up to the first other character. The
// host's runtime saturates at the 32-bit limits, so a too-long number reads as the limit.
std::int32_t TokenValue(const std::uint8_t* token, std::size_t length) {
  std::size_t i = 0;
  while (i < length && IsCSpace(token[i])) ++i;
  bool negative = false;
  if (i < length && (token[i] == '+' || token[i] == '-')) negative = token[i++] == '-';
  std::int64_t value = 0;
  constexpr std::int64_t kLimit = std::int64_t{INT32_MAX} + 1;
  for (; i < length && token[i] >= '0' && token[i] <= '9'; ++i) value = std::min(value * 10 + (token[i] - '0'), kLimit);
  if (negative) return static_cast<std::int32_t>(-value);
  return static_cast<std::int32_t>(std::min<std::int64_t>(value, INT32_MAX));
}

// The n-th number of the file fills its 16 x 16 layer column by column.
void StoreLayerNumber(ScreeningTables& tables, std::size_t n, std::int32_t value) {
  const std::size_t per_layer = std::size_t{kLayerTile} * kLayerTile;
  tables.layers[n / per_layer][n % kLayerTile][(n / kLayerTile) % kLayerTile] =
      static_cast<std::int16_t>(static_cast<std::uint16_t>(static_cast<std::uint32_t>(value) & 0xFFFFu));
}

}  // namespace

int ReadBitmapMatrix(ScreeningTables& tables, ByteSource& source, bool derive_bias) {
  std::array<std::uint8_t, kHeaderBytes> header{};
  if (source.Read(header.data(), header.size()) != header.size()) return kErrShortRead;
  const std::uint32_t pixel_offset = LittleEndian32(header.data() + kPixelOffsetAt);
  const auto width = static_cast<std::int32_t>(LittleEndian32(header.data() + kWidthAt));
  const auto height = static_cast<std::int32_t>(LittleEndian32(header.data() + kHeightAt));
  if (width < 0 || width > kMatrixSize || height < 0 || height > kMatrixSize) return kErrMalformedFile;

  source.Seek(pixel_offset);
  // required: rows are neither padded nor checked for the file's 4-byte row alignment; a width
  // that is not a multiple of 4 reads the padding as pixels of the next row.
  const auto row_bytes = static_cast<std::size_t>(width);
  for (std::int32_t i = 0; i < height; ++i) {
    auto& row = tables.bitmap[static_cast<std::size_t>(height - 1 - i)];  // stored bottom-up
    if (source.Read(row.data(), row_bytes) < row_bytes) return kErrShortRead;
  }
  if (derive_bias) DeriveBias(tables);
  return kOk;
}

int DescribePatternStack(ScreeningTables& tables, PatternDepth depth, int a, int b) {
  const StackLayout& layout = LayoutOf(depth);
  if (!ValidPatternSize(layout, a, b)) return kErrMalformedFile;
  tables.masks = layout.masks;
  tables.geometry.width = a;
  tables.geometry.height = b;
  tables.geometry.bytes_per_row = a * layout.bits_per_pixel / 8;
  return kOk;
}

int ReadPatternStack(ScreeningTables& tables, PatternDepth depth, int a, int b, ByteSource& source) {
  const StackLayout& layout = LayoutOf(depth);
  if (!ValidPatternSize(layout, a, b)) return kErrMalformedFile;
  const auto row_bytes = static_cast<std::size_t>(a * layout.bits_per_pixel / 8);
  const auto rows = static_cast<std::size_t>(b);
  ++tables.pattern_generation;  // even a short read has changed the stack
  // The file runs from the lightest pattern to the darkest; low input levels are dark.
  for (std::size_t k = 0; k < kPatternSlots; ++k)
    for (std::size_t j = 0; j < rows; ++j)
      if (source.Read(PatternRowOf(tables, depth, kPatternSlots - 1 - k, j), row_bytes) != row_bytes)
        return kErrShortRead;
  if (depth == PatternDepth::kDuo) {
    // required: the clear covers bytes-per-row x height bytes from the start of the slot, not
    // the first bytes of each row, so a narrow stack clears whole rows at the top instead.
    std::memset(static_cast<void*>(&tables.duo[kPatternSlots - 1]), 0, row_bytes * rows);
  }
  return kOk;
}

int ParseLayerTable(ScreeningTables& tables, std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) return kErrMalformedFile;
  // Check the whole file first, so a refused file leaves the table untouched.
  std::size_t numbers = 0;
  if (!ForEachToken(bytes, [&](const std::uint8_t*, std::size_t) { ++numbers; }) || numbers > kLayerNumbers)
    return kErrMalformedFile;

  tables.layers = {};
  std::size_t n = 0;
  ForEachToken(bytes, [&](const std::uint8_t* token, std::size_t length) {
    StoreLayerNumber(tables, n++, TokenValue(token, length));
  });
  return kOk;
}

void BuildBayerMatrix(ScreeningTables& tables) { tables.bayer = BayerMatrix(); }

int LoadBitmapFile(Engine& engine, const char* name, bool derive_bias) {
  if (name == nullptr) return kErrOpen;
  FileSource source(engine.MothsPath(name));
  if (!source.is_open()) return kErrOpen;
  return ReadBitmapMatrix(engine.tables, source, derive_bias);
}

int LoadPatternFile(Engine& engine, PatternDepth depth, const char* name, int a, int b) {
  // The geometry and masks change before the file is opened, so a missing file still leaves
  // the stack described by a and b.
  if (int rc = DescribePatternStack(engine.tables, depth, a, b); rc != kOk) return rc;
  if (name == nullptr) return kErrOpen;
  FileSource source(engine.MothsPath(name));
  if (!source.is_open()) return kErrOpen;
  return ReadPatternStack(engine.tables, depth, a, b, source);
}

int LoadLayerFile(Engine& engine, const char* name) {
  if (name == nullptr) return kErrOpen;
  const platform::FileBytes file = platform::ReadWholeFile(engine.MothsPath(name), kLayerFileMaxBytes);
  if (file.status != kOk) return file.status;
  return ParseLayerTable(engine.tables, file.bytes);
}

}  // namespace halftone
