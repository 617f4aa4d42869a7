// The serpentine row engine under every diffusion's fast path: the random-split passes
// (diffusion/random_split_fast.h), the level-restricted, layer-modulated, level-keyed bias and
// cyclic routines and the double-precision members (double_serpentine_fast.h). The same pixels
// in the same order per plane, the same draws and the same rows left behind as the readable
// passes. What changes is how:
//   - the planes of a band run in lockstep groups, row y of every plane in one loop, each plane
//     on its own working rows, carry entries and slice of the random stream, so their
//     dependency chains overlap;
//   - the value carried along the row stays in a register;
//   - a row is cut into whole output bytes, so a column's parity and its dot's shift are
//     constants, and the dots of a byte are gathered in a register and stored once;
//   - where the next row's entry starts from input and bias-matrix noise, those are laid into
//     the next row before the scan, out of the error's dependency chain.
// A family supplies a kernel (what one pixel does); this file is the frame around it. Its
// vector variant is frame/vector_scan.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "frame/band.h"
#include "frame/band_draws.h"
#include "frame/engine.h"
#include "frame/job.h"
#include "frame/lockstep.h"
#include "frame/share_arithmetic.h"

namespace halftone::row_engine {

// A double of the fast passes, in the low lane of a two-lane vector: each operation is the
// IEEE operation on that lane (the other rides along unused), a compare gives a mask and a
// select is bitwise, never a branch on the image. Keeping the value in the vector type spares
// the moves that converting to and from a plain double costs around every select.
using Lanes2 = double __attribute__((vector_size(16)));
using Mask2 = decltype(Lanes2{} <= Lanes2{});
struct Real {
  Lanes2 r;
  static Real Of(double d) { return {Lanes2{d, 0.0}}; }
  static Real Load(const double* p) { return Of(*p); }
  static Real Level(int v) { return Of(static_cast<double>(v)); }
  double Value() const { return r[0]; }
  friend Real operator+(Real a, Real b) { return {a.r + b.r}; }
  friend Real operator-(Real a, Real b) { return {a.r - b.r}; }
  friend Real operator*(Real a, Real b) { return {a.r * b.r}; }
  friend Real operator/(Real a, Real b) { return {a.r / b.r}; }
};
// All ones where the compare holds.
struct Mask {
  Mask2 m;
  unsigned bit() const { return static_cast<unsigned>(m[0]) & 1u; }
};
inline Mask AtOrBelow(Real s, Real t) { return {s.r <= t.r}; }
inline Mask Above(Real s, Real t) { return {s.r > t.r}; }
inline Real Select(Mask m, Real yes, Real no) {
  return {reinterpret_cast<Lanes2>((reinterpret_cast<Mask2>(yes.r) & m.m) | (reinterpret_cast<Mask2>(no.r) & ~m.m))};
}

// What a working-row cell is: a 16-bit integer that wraps as the reference's stores do (held
// in an int while it moves along the row), or a double (held as a Real). Put stores a held
// value or a share into a cell; Plus is a cell plus a share, held.
template <class Cell>
struct Cells;
template <>
struct Cells<std::int16_t> {
  using Held = int;
  HALFTONE_FORCE_INLINE static int Load(const std::int16_t* p) { return *p; }
  HALFTONE_FORCE_INLINE static void Put(std::int16_t* p, int v) { *p = Store16(v); }
  HALFTONE_FORCE_INLINE static int Plus(const std::int16_t* p, int v) { return Store16(*p + v); }
};
template <>
struct Cells<double> {
  using Held = Real;
  HALFTONE_FORCE_INLINE static Real Load(const double* p) { return Real::Load(p); }
  // The low lane stored as it is, not taken out of the vector first.
  HALFTONE_FORCE_INLINE static void Put(double* p, Real v) { __builtin_memcpy(p, &v.r, sizeof(double)); }
  HALFTONE_FORCE_INLINE static Real Plus(const double* p, Real v) { return Real::Load(p) + v; }
};

// What a kernel decides for one pixel: its code (0 writes nothing) and the two shares.
template <class Held>
struct PixelOutOf {
  unsigned code;
  Held ahead;
  Held down;
};
using PixelOut = PixelOutOf<int>;

// One plane of a lockstep group: its working rows, its carry entries and its slice of the
// band's drawn split bits (null when the member draws nothing).
template <class Cell>
struct LaneOf {
  Cell* a;
  Cell* b;
  Cell* carry;
  const std::uint8_t* drawn;
  unsigned p;
};
using Lane = LaneOf<std::int16_t>;

// What a kernel's per-lane hook sees of a row: the row it scans, the row its down shares go to,
// its input, which row of the band and how wide.
template <class Cell>
struct RowView {
  Cell* cur;
  Cell* down;
  Cell* b;  // working row B, whichever way the row goes
  const std::uint8_t* in;
  std::size_t y;
  std::size_t w;
};

struct NoLaneState {};

// The options a kernel may set, with their defaults.
template <class K>
struct KernelOptions {
  // A kernel's type `name`, or `fallback` where it sets none.
#define HALFTONE_KERNEL_TYPE(name, fallback)                 \
  using name = typename decltype([] {                        \
    if constexpr (requires { typename K::name; })            \
      return std::type_identity<typename K::name>{};         \
    else                                                     \
      return std::type_identity<fallback>{};                 \
  }())::type
  HALFTONE_KERNEL_TYPE(Cell, std::int16_t);
  HALFTONE_KERNEL_TYPE(Held, typename Cells<Cell>::Held);
  HALFTONE_KERNEL_TYPE(LaneState, NoLaneState);
#undef HALFTONE_KERNEL_TYPE
  static constexpr bool kLaneState = requires { typename K::LaneState; };
  // A kernel's constant `name`, or `fallback` where it sets none.
#define HALFTONE_KERNEL_OPTION(type, name, fallback) \
  static constexpr type name = [] {                  \
    if constexpr (requires { K::name; })             \
      return type{K::name};                          \
    else                                             \
      return type{fallback};                         \
  }()
  HALFTONE_KERNEL_OPTION(unsigned, kGroupUnroll, 8);
  HALFTONE_KERNEL_OPTION(bool, kRowEndDraws, true);
  HALFTONE_KERNEL_OPTION(bool, kLastLtrToCarry, false);
  HALFTONE_KERNEL_OPTION(bool, kLastLtrDrops, false);
  HALFTONE_KERNEL_OPTION(bool, kStartIsInput, false);
  HALFTONE_KERNEL_OPTION(bool, kSpreadsDown, false);
  HALFTONE_KERNEL_OPTION(bool, kNextHeld, false);
  HALFTONE_KERNEL_OPTION(bool, kByLanes, false);
  HALFTONE_KERNEL_OPTION(bool, kWholeGroups, false);
#undef HALFTONE_KERNEL_OPTION
  static constexpr unsigned kWidest = LockstepWidth<K>();
};

// The row engine of the serpentine diffusions that pass error ahead and down. A kernel provides:
//   kBits      output bits a pixel (1 or 2);
//   kStarts    true when a row's entries start from a value (input, matrix noise) that the
//              error is added to, laid in by FillStart(row, in, y, w); false: bare error;
//   kDraws     true when every pixel takes one draw of the random stream (its split bits,
//              bits 1 and 2 of the draw, reach Step as `drawn`);
//   SetRow(y)  per-row state;
//   Step       the pixel's code and shares, from its input level v and the value its row entry
//              holds after the error that arrived; odd is x & 1, a constant where the frame
//              unrolls a byte. Without a LaneState: Step<kLtr>(v, held, x, odd, drawn); with
//              one: Step<kLtr, kLast, kEnd>(state, v, held, x, odd, drawn), kEnd for the pixel
//              ending the row (whose ahead share is dropped).
// and may set (KernelOptions): Cell (double rows instead of 16-bit ones); LaneState, the
// lane's own state, begun by StartLane(lane) and by LaneRow<kLtr, kLast>(state, RowView) at every
// row; kRowEndDraws = false when the pixel ending a row takes no draw; kLastLtrToCarry when a
// left-to-right last row's down shares go to the carry (else to B, as the right-to-left ones
// go to the carry); kStartIsInput when a row starts from its input alone, added as the down
// shares are stored instead of laid in first; kSpreadsDown when the kernel places its down share itself,
// PutDown<kLtr, kEnd>(state, down, x, i, share); kLockstep, the widest group, and kWholeGroups, no
// group narrower than that to give a thread one; kGroupUnroll, the columns of a byte a group
// unrolls (all of them unless the kernel's pixel is large: the diagonal one takes 1, which ran
// its four-plane bands at 1.08 times the whole byte).
template <class Kernel, unsigned kLanes>
class Scan {
  using Opt = KernelOptions<Kernel>;
  using Cell = typename Opt::Cell;
  using Held = typename Opt::Held;
  using State = typename Opt::LaneState;

 public:
  Scan(const Kernel& kernel, const Band& band, const LaneOf<Cell>* lanes) : k_(kernel), band_(band) {
    for (unsigned l = 0; l < kLanes; ++l) {
      lanes_[l] = lanes[l];
      if constexpr (Opt::kLaneState) state_[l] = k_.StartLane(lanes[l]);
    }
  }

  // The band's rows. Row 0 always enters A; `start_rtl` scans it right to left (from B) and
  // every row after it the other way round from the one before.
  void Run(bool start_rtl = false) {
    const std::size_t w = band_.w, h = band_.h;
    for (unsigned l = 0; l < kLanes; ++l) {
      Cell* a = lanes_[l].a;
      Cell* carry = lanes_[l].carry;
      // The carry is taken and cleared in one pass.
      if constexpr (Kernel::kStarts) {
        k_.FillStart(a, band_.In(0, lanes_[l].p), 0, w);
        for (std::size_t x = 0; x < w; ++x) Cells<Cell>::Put(a + x, a[x] + std::exchange(carry[x], Cell{}));
      } else {
        LoadCarry(a, carry, w);
      }
    }
    for (std::size_t y = 0; y < h; ++y) {
      const bool ltr = ((y & 1) == 0) != start_rtl;
      if (y + 1 == h)
        ltr ? Row<true, true, true>(y) : Row<false, true, true>(y);
      else if (y + 2 == h)
        ltr ? Row<true, false, true>(y) : Row<false, false, true>(y);
      else
        ltr ? Row<true, false, false>(y) : Row<false, false, false>(y);
    }
  }

  // The band's last row alone, on working rows that hold what the rows before it left; each
  // lane's draws start at that row's.
  void LastRow() {
    const std::size_t h = band_.h;
    if (((h - 1) & 1) == 0)
      Row<true, true, true>(h - 1);
    else
      Row<false, true, true>(h - 1);
  }

 private:
  static constexpr unsigned kBits = Kernel::kBits;
  static constexpr unsigned kPerByte = 8 / kBits;

  static unsigned Shift(std::size_t x) {
    return static_cast<unsigned>(kPerByte - 1 - (x & (kPerByte - 1))) * kBits;
  }

  // The working state of one lane's row, held in locals of Row.
  struct RowState {
    Cell* cur;
    Cell* down;
    const std::uint8_t* in;
    const std::uint8_t* below;  // the next row's input (kStartIsInput)
    std::uint8_t* out;
    const std::uint8_t* drawn;  // split bits by scan position
    Held held;
    unsigned acc;
    State state;  // the lane's kernel state, a local for the row
  };

  // One pixel of lane l at scan position i (column x, x & 1 = odd, dot at `shift` in its
  // byte); kEnd for the row's last pixel, whose ahead share is dropped. kKeepCur stores the
  // value the pixel saw back into its row, which only the band's last two rows need: every
  // other row is overwritten by the next row's down shares.
  template <bool kLtr, bool kLast, bool kKeepCur, bool kEnd>
  HALFTONE_FORCE_INLINE void Pixel(RowState& st, std::size_t i, std::size_t x, unsigned odd,
                                   unsigned shift) {
    const int v = st.in[x];
    if constexpr (kKeepCur) Cells<Cell>::Put(st.cur + x, st.held);
    const unsigned drawn = Kernel::kDraws && (Opt::kRowEndDraws || !kEnd) ? st.drawn[i] : 0u;
    PixelOutOf<Held> o;
    if constexpr (Opt::kByLanes)
      o = k_.template Step<kLtr, kLast, kEnd, kLanes>(st.state, v, st.held, x, odd, drawn);
    else if constexpr (Opt::kLaneState)
      o = k_.template Step<kLtr, kLast, kEnd>(st.state, v, st.held, x, odd, drawn);
    else
      o = k_.template Step<kLtr>(v, st.held, x, odd, drawn);
    st.acc |= o.code << shift;
    if constexpr (kLast && kLtr && Opt::kLastLtrDrops)
      ;  // a left-to-right last row's down shares go nowhere
    else if constexpr (Opt::kSpreadsDown)
      k_.template PutDown<kLtr, kEnd>(st.state, st.down, x, i, o.down);
    else if constexpr (Kernel::kStarts && !kLast && Opt::kStartIsInput)
      Cells<Cell>::Put(st.down + x, st.below[x] + o.down);
    else if constexpr (Kernel::kStarts && !kLast)
      Cells<Cell>::Put(st.down + x, st.down[x] + o.down);
    else
      Cells<Cell>::Put(st.down + x, o.down);
    if constexpr (kEnd)
      ;
    else if constexpr (Opt::kNextHeld)
      st.held = o.ahead;
    else
      st.held = Cells<Cell>::Plus(st.cur + (kLtr ? x + 1 : x - 1), o.ahead);
  }

  // Scan position i of every lane.
  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE void LanesPixel(RowState* st, std::size_t i, std::size_t x, unsigned odd,
                                         unsigned shift) {
    ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
      Pixel<kLtr, kLast, kKeepCur, false>(st[l], i, x, odd, shift);
    });
  }

  // Each lane's gathered dots into byte k of its output row.
  HALFTONE_FORCE_INLINE static void Flush(RowState* st, std::size_t k) {
    ForEachLane<kLanes>([&](unsigned l) HALFTONE_FORCE_INLINE {
      st[l].out[k] = static_cast<std::uint8_t>(st[l].out[k] | st[l].acc);
      st[l].acc = 0;
    });
  }

  // Scan positions i0 .. i0+count-1 within one output byte, each dot's shift as it falls.
  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE void LanesPartial(RowState* st, std::size_t i0, std::size_t count) {
    const std::size_t w = band_.w;
    for (std::size_t i = i0; i < i0 + count; ++i) {
      const std::size_t x = kLtr ? i : w - 1 - i;
      LanesPixel<kLtr, kLast, kKeepCur>(st, i, x, static_cast<unsigned>(x & 1), Shift(x));
    }
  }

  // Output byte k whole, its kPerByte pixels in scan order with constant shifts and parities
  // (a byte starts at an even column).
  template <bool kLtr, bool kLast, bool kKeepCur>
  HALFTONE_FORCE_INLINE void LanesByte(RowState* st, std::size_t k) {
    const std::size_t w = band_.w;
    const std::size_t base = k * kPerByte;
    // Scan position j of the byte.
    const auto pixel = [&](unsigned j) HALFTONE_FORCE_INLINE {
      LanesPixel<kLtr, kLast, kKeepCur>(st, kLtr ? base + j : w - 1 - (base + kPerByte - 1 - j),
                                        base + (kLtr ? j : kPerByte - 1 - j), (kLtr ? j : kPerByte - 1 - j) & 1u,
                                        (kLtr ? kPerByte - 1 - j : j) * kBits);
    };
    // A group's pixel bodies are several times a lone lane's: a kernel may unroll fewer
    // columns of a byte there (kGroupUnroll).
    constexpr unsigned kUnroll = kLanes > 1 && Opt::kGroupUnroll < kPerByte ? Opt::kGroupUnroll : kPerByte;
#pragma GCC unroll 1
    for (unsigned j = 0; j < kPerByte; j += kUnroll)
      [&]<unsigned... u>(std::integer_sequence<unsigned, u...>)
          HALFTONE_FORCE_INLINE { (pixel(j + u), ...); }(std::make_integer_sequence<unsigned, kUnroll>{});
    Flush(st, k);
  }

  // Row y of every lane, scanned left to right (kLtr) or right to left; kLast for the band's
  // last row, whose right-to-left down shares go bare into the carry and whose left-to-right
  // ones go bare into B (or the carry, kLastLtrToCarry). The row is cut into whole output
  // bytes plus a partial byte at either end.
  template <bool kLtr, bool kLast, bool kKeepCur>
  void Row(std::size_t y) {
    const std::size_t w = band_.w;
    k_.SetRow(y);
    RowState st[kLanes];
    for (unsigned l = 0; l < kLanes; ++l) {
      const bool to_carry = kLast && (!kLtr || Opt::kLastLtrToCarry);
      st[l].cur = kLtr ? lanes_[l].a : lanes_[l].b;
      st[l].down = to_carry ? lanes_[l].carry : (kLtr ? lanes_[l].b : lanes_[l].a);
      st[l].in = band_.In(y, lanes_[l].p);
      st[l].out = band_.Out(y, lanes_[l].p);
      st[l].drawn = lanes_[l].drawn;
      st[l].held = Cells<Cell>::Load(st[l].cur + (kLtr ? 0 : w - 1));
      st[l].acc = 0;
      st[l].state = state_[l];
      if constexpr (Kernel::kStarts && !kLast) {
        st[l].below = band_.In(y + 1, lanes_[l].p);
        if constexpr (!Opt::kStartIsInput) k_.FillStart(st[l].down, st[l].below, y + 1, w);
      }
      if constexpr (Opt::kLaneState)
        k_.template LaneRow<kLtr, kLast>(st[l].state, RowView<Cell>{st[l].cur, st[l].down, lanes_[l].b, st[l].in, y, w});
    }

    ForEachRowByte<kLtr, kPerByte>(
        w, [&](std::size_t k) HALFTONE_FORCE_INLINE { LanesByte<kLtr, kLast, kKeepCur>(st, k); },
        [&](std::size_t i0, std::size_t n) HALFTONE_FORCE_INLINE { LanesPartial<kLtr, kLast, kKeepCur>(st, i0, n); },
        [&](std::size_t k) HALFTONE_FORCE_INLINE { Flush(st, k); });

    // The pixel ending the row.
    const std::size_t x = kLtr ? w - 1 : 0;
    for (unsigned l = 0; l < kLanes; ++l) {
      Pixel<kLtr, kLast, kKeepCur, true>(st[l], w - 1, x, static_cast<unsigned>(x & 1), Shift(x));
      st[l].out[x / kPerByte] = static_cast<std::uint8_t>(st[l].out[x / kPerByte] | st[l].acc);
      if constexpr (Kernel::kDraws) lanes_[l].drawn += Opt::kRowEndDraws ? w : w - 1;
      state_[l] = st[l].state;
    }
  }

  Kernel k_;
  const Band& band_;
  LaneOf<Cell> lanes_[kLanes];
  State state_[kLanes];
};

// The band's n draws, kept as their two split bits (bits 1 and 2 of a draw, the most a
// kernel reads), one byte a draw: a quarter of the memory the words take, which the scan of a
// 4-plane band otherwise streams through twice.
inline constexpr unsigned kSplitBitsShift = 1;
inline constexpr std::uint8_t kSplitBitsMask = 3;
inline const std::uint8_t* DrawSplitBits(Engine& engine, std::size_t n, unsigned planes, unsigned widest = kMaxLockstep,
                                         unsigned smallest = 1) {
  return DrawBandBytes(engine, n, 0, kSplitBitsShift, kSplitBitsMask,
                       LockstepGroupCount(planes, engine.threads.count(), widest, smallest));
}

// The working rows a kernel's cells live in.
template <class Cell>
auto& RowsOf(Engine& engine) {
  if constexpr (std::is_same_v<Cell, double>)
    return engine.double_rows;
  else
    return engine.rows;
}

// Every plane of a band (w, h >= 1). The random stream the planes would draw one after the
// other is drawn ahead, each plane reading its own slice; every plane but the last runs on its
// own working rows, the last on the shared ones, so they end the band as the sequential passes
// leave them. Groups of planes run in lockstep, the groups on the engine's threads. A kernel
// that finds its own draws may give where each plane's start (plane_draws[p], its lane's `drawn`).
template <class Kernel>
void RunBand(const Kernel& kernel, Engine& engine, const Band& band,
             const std::uint8_t* const* plane_draws = nullptr) {
  using Opt = KernelOptions<Kernel>;
  using Cell = typename Opt::Cell;
  const unsigned planes = band.planes;
  const unsigned smallest = Opt::kWholeGroups ? Opt::kWidest : 1u;
  const std::size_t per_plane = Kernel::kDraws ? (Opt::kRowEndDraws ? band.w : band.w - 1) * band.h : 0;
  const std::uint8_t* drawn = nullptr;
  if constexpr (Kernel::kDraws) drawn = DrawSplitBits(engine, per_plane * planes, planes, Opt::kWidest, smallest);
  auto& rows = RowsOf<Cell>(engine);
  ForEachLockstepGroup(engine.threads, planes, Opt::kWidest, smallest, [&](unsigned first, unsigned n) {
    LaneOf<Cell> lanes[kMaxLockstep];
    for (unsigned l = 0; l < n; ++l) {
      const unsigned p = first + l;
      lanes[l] = {LaneRowA(rows, p, planes), LaneRowB(rows, p, planes), rows.carry(p, band.w),
                  plane_draws ? plane_draws[p] : (Kernel::kDraws ? drawn + per_plane * p : nullptr), p};
    }
    WithLaneCount<Opt::kWidest>(n, [&](auto lanes_n) { Scan<Kernel, decltype(lanes_n)::value>(kernel, band, lanes).Run(); });
  });
}

}  // namespace halftone::row_engine
