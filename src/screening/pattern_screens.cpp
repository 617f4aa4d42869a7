// Pattern-stack screens: every input level owns a stored dot pattern, and a run of equal samples
// copies its level's pattern a whole byte at a time. Continuous-tone pages are mostly long runs,
// so only the first and last byte of a run are composed bit by bit, through a carry byte that
// holds the bits already set in an output byte two runs share.
#include <algorithm>
#include <bit>
#include <cstring>
#include <type_traits>

#include "frame/dispatch.h"
#include "screening/screens.h"

namespace halftone {

namespace {

// The pattern stack as the bytes it occupies: a pattern row may be read past its own end (when a
// loaded row length exceeds the storage row), which runs on into the next stored row; nothing
// past the end of the stack is ever read (such bytes read as 0).
struct StackBytes {
  const std::uint8_t* bytes;
  std::size_t size;
  std::size_t row_stride;
  std::size_t slot_stride;
};

struct PatternRow {
  const std::uint8_t* base;
  std::size_t avail;  // bytes of the stack from base on

  std::uint8_t Byte(std::size_t i) const { return i < avail ? base[i] : 0; }
  // count bytes starting at byte `from` of the row.
  void CopyTo(std::uint8_t* d, std::size_t from, std::size_t count) const {
    const std::size_t real = from < avail ? std::min(count, avail - from) : 0;
    if (real != 0) std::memcpy(d, base + from, real);
    if (real != count) std::memset(d + real, 0, count - real);
  }
};

// Pattern width W (pixels), height H (rows), row length R (bytes) as a screen tiles them.
struct Tiling {
  std::size_t width, height, row_bytes;
};

template <unsigned kPixelsPerByte>
class RunCopier {
 public:
  RunCopier(const Tiling& tiling, const EdgeMasks& masks, std::uint8_t* out, std::size_t out_bytes)
      : tiling_(tiling), masks_(masks), out_(out), out_bytes_(out_bytes) {}

  // Writes the run of `n` pixels ending before pixel `end` with pattern row `q_row`.
  void Flush(const PatternRow& q_row, std::size_t end, std::ptrdiff_t n) {
    constexpr std::ptrdiff_t P = kPixelsPerByte;
    std::size_t x0 = end - static_cast<std::size_t>(n);
    std::size_t q = x0 % tiling_.width;

    // Head: the run starts inside an output byte; merge into what the previous run left.
    const auto o = static_cast<std::ptrdiff_t>(q % P);
    if (o > 0) {
      carry_ = static_cast<std::uint8_t>(carry_ | (q_row.Byte(q / P) & masks_.tail[static_cast<std::size_t>(o)]));
      if (n < P - o) carry_ = static_cast<std::uint8_t>(carry_ & masks_.head[static_cast<std::size_t>(o + n)]);
      Put(x0 / P, carry_);
      n -= P - o;
      x0 += static_cast<std::size_t>(P - o);
      q += static_cast<std::size_t>(P - o);
    }
    // The run ended inside that byte: the carry keeps its bits for the next run.
    if (n <= 0) return;

    // Body: whole bytes, the pattern row wrapping around after R bytes.
    const std::size_t whole = static_cast<std::size_t>(n) / P;
    if (whole > 0) CopyBody(q_row, x0 / P, q / P, whole);

    // Tail: the first t pixels of a byte the next run will complete.
    const std::size_t t = (q + static_cast<std::size_t>(n)) % P;
    if (t > 0) {
      carry_ = static_cast<std::uint8_t>(q_row.Byte(((q + static_cast<std::size_t>(n)) / P) % tiling_.row_bytes) &
                                         masks_.head[t]);
      Put((x0 + static_cast<std::size_t>(n)) / P, carry_);
    } else {
      carry_ = 0;
    }
  }

 private:
  void Put(std::size_t i, std::uint8_t v) {
    if (i < out_bytes_) out_[i] = v;
  }

  void CopyBody(const PatternRow& q_row, std::size_t out_at, std::size_t from, std::size_t count) {
    if (out_at >= out_bytes_) return;
    count = std::min(count, out_bytes_ - out_at);
    std::uint8_t* d = out_ + out_at;
    const std::size_t r = tiling_.row_bytes;
    std::size_t piece = from < r ? std::min(count, r - from) : 0;
    q_row.CopyTo(d, from, piece);
    for (std::size_t done = piece; done < count; done += piece) {
      piece = std::min(count - done, r);
      q_row.CopyTo(d + done, 0, piece);
    }
  }

  Tiling tiling_;
  const EdgeMasks& masks_;
  std::uint8_t* out_;
  std::size_t out_bytes_;
  std::uint8_t carry_ = 0;
};

template <unsigned kPixelsPerByte>
void ScreenRow(const std::uint8_t* s, std::uint8_t* out, std::size_t w, std::size_t out_bytes, const Tiling& tiling,
               const EdgeMasks& masks, const StackBytes& stack, std::size_t pattern_row) {
  RunCopier<kPixelsPerByte> copier(tiling, masks, out, out_bytes);
  auto row_of = [&](unsigned level) {
    const std::size_t at = level * stack.slot_stride + pattern_row * stack.row_stride;
    return PatternRow{stack.bytes + at, stack.size - at};
  };

  // The first pixel always opens the first run.
  unsigned level = s[0];
  std::ptrdiff_t n = 1;
  std::size_t x = 1;
  while (x < w) {
    if (s[x] == level) {
      ++n;
      if (x < w - 1) {
        ++x;
        continue;
      }
      ++x;  // the row ends inside the run
      copier.Flush(row_of(level), x, n);
      break;
    }
    copier.Flush(row_of(level), x, n);
    // required: a new run that opens on the last pixel is never flushed, so a last pixel that
    // differs from its neighbour stays empty (and a one-pixel row prints nothing).
    level = s[x];
    n = 1;
    ++x;
  }
}

template <unsigned kPixelsPerByte>
void ScreenBand(const Band& band, const Tiling& tiling, const EdgeMasks& masks, const StackBytes& stack) {
  for (unsigned p = 0; p < band.planes; ++p)
    for (std::size_t y = 0; y < band.h; ++y)
      // Bands restart the tile at pattern row 0: the pattern does not run on across bands.
      ScreenRow<kPixelsPerByte>(band.In(y, p), band.Out(y, p), band.w, band.dst_stride, tiling, masks, stack,
                                y % tiling.height);
}

// ---- Fast path -------------------------------------------------------------------------------
// When a pattern row is W = R * P pixels read from its own storage row, the runs above come
// down to this: a byte wholly inside a run is its level's pattern byte at the byte's place in
// the tile, a stretch of such bytes a copy of the pattern row, and a byte where runs meet (or
// the row ends) is merged through the edge masks the way the carry merges it. Pixels past the
// last flushed run stay empty.

// Whether the fast path covers a tiling: every pattern row lies within its stored row.
template <unsigned P>
bool RegularTiling(const Tiling& tiling, const StackBytes& stack) {
  return tiling.row_bytes != 0 && tiling.width == tiling.row_bytes * P && tiling.row_bytes <= stack.row_stride &&
         tiling.height <= std::size_t{kMatrixSize} &&
         stack.slot_stride >= stack.row_stride * tiling.height &&
         stack.size >= stack.slot_stride * std::size_t{kPatternSlots};
}

// The P samples of one output byte, loaded as one word.
template <unsigned P>
using GroupWord = std::conditional_t<P == 8, std::uint64_t, std::uint32_t>;

template <unsigned P>
GroupWord<P> LoadGroup(const std::uint8_t* s) {
  GroupWord<P> g;
  std::memcpy(&g, s, sizeof g);
  return g;
}

template <unsigned P>
constexpr GroupWord<P> Spread(unsigned level) {
  return static_cast<GroupWord<P>>(level) * static_cast<GroupWord<P>>(~GroupWord<P>{0} / 0xFFu);
}

template <unsigned P>
class FastRowScreen {
 public:
  // Level l's pattern row starts at level0 + l * slot_stride.
  FastRowScreen(const std::uint8_t* level0, std::size_t slot_stride, std::size_t row_bytes, const EdgeMasks& masks)
      : level0_(level0), slot_stride_(slot_stride), r_(row_bytes), masks_(masks) {}

  // The row's first m pixels as the runs leave them; the cleared rest stays empty.
  void Row(const std::uint8_t* s, std::uint8_t* out, std::size_t m) const {
    const std::size_t whole = m / P;
    std::size_t i = 0;
    std::size_t col = 0;  // i % R, kept by counting: a division per byte would dominate the row
    while (i < whole) {
      const GroupWord<P> g = LoadGroup<P>(s + i * P);
      const GroupWord<P> spread = Spread<P>(s[i * P]);
      // Whole bytes of one run are its level's pattern bytes, whatever the masks.
      if (g == spread) {
        // Byte by byte while the run is short; a run as long as the pattern row goes on in
        // copies of it.
        const std::uint8_t* row = PatternRow(s[i * P]);
        const std::size_t first = i;
        do {
          out[i] = row[col];
          if (++col == r_) col = 0;
          ++i;
        } while (i < whole && i - first < r_ && LoadGroup<P>(s + i * P) == spread);
        if (i - first == r_ && i < whole) {
          std::size_t end = i;
          while (end < whole && LoadGroup<P>(s + end * P) == spread) ++end;
          Copy(out + i, row, col, end - i);
          col = (col + (end - i)) % r_;
          i = end;
        }
        continue;
      }
      out[i] = Compose(s + i * P, P, col);
      if (++col == r_) col = 0;
      ++i;
    }
    if (m % P != 0) {
      // The samples of the last, partial byte, copied so the group word reads nothing past them.
      std::uint8_t last[P] = {};
      std::memcpy(last, s + whole * P, m % P);
      out[whole] = Compose(last, static_cast<unsigned>(m % P), col);
    }
  }

 private:
  const std::uint8_t* PatternRow(unsigned level) const { return level0_ + level * slot_stride_; }

  // The first `count` pixels of one output byte, merged run by run as the carry merges them:
  // the run opening the byte takes its pattern byte, a run opening at pixel j keeps what is
  // there masked by head[j] and adds its pattern byte masked by tail[j], and a run cut by the
  // row's end at pixel k is masked by head[k].
  std::uint8_t Compose(const std::uint8_t* g, unsigned count, std::size_t byte) const {
    const GroupWord<P> ends = RunEnds(g);
    unsigned bits = PatternRow(g[0])[byte];
    for (unsigned j = NextRun(ends, 0); j < count; j = NextRun(ends, j)) {
      const unsigned pattern = PatternRow(g[j])[byte];
      bits = (bits & masks_.head[j]) | (pattern & masks_.tail[j]);
    }
    if (count < P) bits &= masks_.head[count];
    return static_cast<std::uint8_t>(bits);
  }

  // Byte j of the result is nonzero where sample j + 1 differs from sample j (byte P - 1 is
  // anything: the group ends there anyway).
  static GroupWord<P> RunEnds(const std::uint8_t* g) {
    if constexpr (std::endian::native == std::endian::little) {
      const GroupWord<P> w = LoadGroup<P>(g);
      return static_cast<GroupWord<P>>(w ^ (w >> 8));
    } else {
      GroupWord<P> ends = 0;
      for (unsigned j = 0; j + 1 < P; ++j)
        if (g[j] != g[j + 1]) ends |= static_cast<GroupWord<P>>(0xFFu) << (8 * j);
      return ends;
    }
  }
  // The first pixel after j with another sample than pixel j, or P.
  static unsigned NextRun(GroupWord<P> ends, unsigned j) {
    const GroupWord<P> rest = static_cast<GroupWord<P>>(ends >> (8 * j));
    return rest == 0 ? P : j + static_cast<unsigned>(std::countr_zero(rest)) / 8 + 1;
  }

  // `count` pattern bytes from byte `from` on, the pattern row wrapping after R bytes.
  void Copy(std::uint8_t* d, const std::uint8_t* row, std::size_t from, std::size_t count) const {
    if (count <= 8) {
      for (std::size_t k = 0; k < count; ++k) {
        d[k] = row[from];
        if (++from == r_) from = 0;
      }
      return;
    }
    std::size_t piece = std::min(count, r_ - from);
    std::memcpy(d, row + from, piece);
    for (std::size_t done = piece; done < count; done += piece) {
      piece = std::min(count - done, r_);
      std::memcpy(d + done, row, piece);
    }
  }

  const std::uint8_t* level0_;
  std::size_t slot_stride_;
  std::size_t r_;
  const EdgeMasks& masks_;
};

// `blocks`: the stack row first (PatternRowBlocks), each level's stored row whole.
template <unsigned kPixelsPerByte>
void ScreenBandFast(const Band& band, const Tiling& tiling, const EdgeMasks& masks, const StackBytes& stack,
                    const std::uint8_t* blocks) {
  const std::size_t w = band.w;
  // A row of one pixel prints nothing; a last pixel that differs from its neighbour opens a
  // run that is never flushed.
  if (w < 2) return;
  const std::size_t stored = stack.row_stride;
  for (std::size_t y = 0; y < band.h; ++y) {
    const std::uint8_t* block = blocks + (y % tiling.height) * std::size_t{kPatternSlots} * stored;
    const FastRowScreen<kPixelsPerByte> screen(block, stored, tiling.row_bytes, masks);
    for (unsigned p = 0; p < band.planes; ++p) {
      const std::uint8_t* s = band.In(y, p);
      const std::size_t m = s[w - 1] == s[w - 2] ? w : w - 1;
      screen.Row(s, band.Out(y, p), m);
    }
  }
}

// `blocks()` gives the stack row first; it is asked for only when the fast path runs.
template <unsigned kPixelsPerByte, class Blocks>
void ScreenBandChosen(const Band& band, const Tiling& tiling, const EdgeMasks& masks, const StackBytes& stack,
                      Blocks&& blocks) {
  if (ForceScalar() || !RegularTiling<kPixelsPerByte>(tiling, stack))
    ScreenBand<kPixelsPerByte>(band, tiling, masks, stack);
  else
    ScreenBandFast<kPixelsPerByte>(band, tiling, masks, stack, blocks());
}

constexpr Tiling kFixedMonoTiling{kMatrixSize, kMatrixSize, kMonoRowBytes};
constexpr Tiling kFixedDuoTiling{kMatrixSize, kMatrixSize, kDuoRowBytes};

template <class Stack>
StackBytes BytesOf(const Stack& stack, std::size_t row_bytes) {
  return {reinterpret_cast<const std::uint8_t*>(stack.data()), sizeof stack, row_bytes,
          row_bytes * std::size_t{kMatrixSize}};
}

}  // namespace

int ScreenWithPatterns(Engine& engine, PatternScreen screen, const std::uint8_t* src, std::uint8_t* dst,
                       std::size_t w, std::size_t h, HalftoneFlags flags) {
  const ScreeningTables& tables = engine.tables;
  const PatternGeometry& g = tables.geometry;
  if (screen == PatternScreen::kMonoLoadedGeometry && (g.width <= 0 || g.height <= 0 || g.bytes_per_row <= 0))
    return kErrOutOfContract;

  const auto mono_blocks = [&] { return engine.pattern_rows.Mono(tables); };
  const unsigned bits = screen == PatternScreen::kDuoFixed ? 2 : 1;
  const Band band = Band::Make(src, dst, w, h, flags, bits);
  band.ClearOutput();
  if (w == 0) return kOk;

  switch (screen) {
    case PatternScreen::kMonoLoadedGeometry: {
      const Tiling tiling{static_cast<std::size_t>(g.width), static_cast<std::size_t>(g.height),
                          static_cast<std::size_t>(g.bytes_per_row)};
      ScreenBandChosen<8>(band, tiling, tables.masks, BytesOf(tables.mono, kMonoRowBytes), mono_blocks);
      break;
    }
    case PatternScreen::kMonoFixed:
      ScreenBandChosen<8>(band, kFixedMonoTiling, tables.masks, BytesOf(tables.mono, kMonoRowBytes), mono_blocks);
      break;
    case PatternScreen::kDuoFixed:
      ScreenBandChosen<4>(band, kFixedDuoTiling, tables.masks, BytesOf(tables.duo, kDuoRowBytes),
                          [&] { return engine.pattern_rows.Duo(tables); });
      break;
  }
  return kOk;
}

}  // namespace halftone
