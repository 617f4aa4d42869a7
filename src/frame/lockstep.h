// What the fast diffusion paths share to run the planes of a band in lockstep: row y of every
// plane of a group in one loop, so the pixel-to-pixel dependency chains of different planes
// overlap. A family writes its own row pass; the grouping, the lane unrolling, the choice of
// working rows and the serpentine row order are the same everywhere and live here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "frame/force_inline.h"
#include "frame/plane_threads.h"

namespace halftone {

// `v <= cut ? a : b` by a compare and a conditional move, for a choice the branch predictor
// cannot learn (an image's dots): compilers sometimes turn the plain form into a branch,
// mispredicted half the time. The compare is made here, on the value itself, so the choice
// never waits for a flag the compiler has kept as a byte in memory (in a four-lane group it
// did, putting a store and a reload on every pixel's chain).
HALFTONE_FORCE_INLINE inline int SelectAtOrBelow(int v, int cut, int a, int b) {
#if defined(__GNUC__) && defined(__x86_64__)
  __asm__("cmpl %2, %1\n\tcmovlel %3, %0" : "+r"(b) : "r"(v), "ri"(cut), "r"(a) : "cc");
  return b;
#else
  return v <= cut ? a : b;
#endif
}

// p, opaque to the optimiser: a table column's address formed off the chain stays one
// register, so a load on the chain is one base-plus-scaled-index access. Left alone, the
// compiler folds the column's offset into the index arithmetic, and a three-part address adds
// cycles between one pixel's value and the next.
template <class T>
HALFTONE_FORCE_INLINE inline const T* PinnedAddress(const T* p) {
#if defined(__GNUC__)
  __asm__("" : "+r"(p));
#endif
  return p;
}

// Planes run in lockstep groups of at most this many (WithLaneCount has a case for each size).
inline constexpr unsigned kMaxLockstep = 4;
// The widest group a pass or kernel runs well in: a type whose lanes hold many live values may
// ask for narrower groups with `kLockstep` (measured, not derived).
template <class T>
constexpr unsigned LockstepWidth() {
  if constexpr (requires { T::kLockstep; })
    return T::kLockstep;
  else
    return kMaxLockstep;
}

// Planes a group holds: up to `widest` (at most kMaxLockstep) on one thread; with more threads
// the planes are spread so that every thread gets a group, but no group is made smaller than
// `smallest` planes (a scan whose small groups on two threads run slower than one larger group
// on one thread).
inline unsigned LockstepGroupSize(unsigned planes, int threads, unsigned widest = kMaxLockstep,
                                  unsigned smallest = 1) {
  if (widest > kMaxLockstep) widest = kMaxLockstep;
  const unsigned t = threads <= 1 ? 1u : static_cast<unsigned>(threads);
  unsigned g = (planes + t - 1) / t;
  if (g < smallest) g = smallest < planes ? smallest : planes;
  if (g == 0) g = 1;
  return g < widest ? g : widest;
}

// The lockstep groups a band's planes run as (see LockstepGroupSize).
inline unsigned LockstepGroupCount(unsigned planes, int threads, unsigned widest = kMaxLockstep, unsigned smallest = 1) {
  const unsigned size = LockstepGroupSize(planes, threads, widest, smallest);
  return (planes + size - 1) / size;
}

// Calls group(first, n) for every lockstep group of a band's planes (planes first .. first+n-1),
// the groups spread over the threads, none smaller than `smallest` planes where the band has
// that many.
template <class Group>
void ForEachLockstepGroup(PlaneThreads& threads, unsigned planes, unsigned widest, unsigned smallest, Group&& group) {
  const unsigned size = LockstepGroupSize(planes, threads.count(), widest, smallest);
  const unsigned groups = (planes + size - 1) / size;
  threads.ForEachPlane(groups, [&](unsigned g) {
    const unsigned first = g * size;
    group(first, planes - first < size ? planes - first : size);
  });
}

// Calls fn(std::integral_constant<unsigned, n>{}) for a group of n <= kWidest planes, so the
// scan is instantiated for each group size up to kWidest (each is a large function) and its
// lanes are counted at compile time.
template <unsigned kWidest = kMaxLockstep, class Fn>
inline void WithLaneCount(unsigned n, Fn&& fn) {
  static_assert(kWidest >= 1 && kWidest <= kMaxLockstep);
  if constexpr (kWidest >= 4) {
    if (n >= 4) return fn(std::integral_constant<unsigned, 4>{});
  }
  if constexpr (kWidest >= 3) {
    if (n == 3) return fn(std::integral_constant<unsigned, 3>{});
  }
  if constexpr (kWidest >= 2) {
    if (n == 2) return fn(std::integral_constant<unsigned, 2>{});
  }
  fn(std::integral_constant<unsigned, 1>{});
}

// Calls fn(l) for l = 0 .. kN-1 as separate statements, so each lane's state is addressed by a
// constant and can stay in registers.
template <unsigned kN, class Fn>
HALFTONE_FORCE_INLINE inline void ForEachLane(Fn&& fn) {
  [&]<unsigned... l>(std::integer_sequence<unsigned, l...>) HALFTONE_FORCE_INLINE {
    (fn(std::integral_constant<unsigned, l>{}), ...);
  }(std::make_integer_sequence<unsigned, kN>{});
}

// The scan positions of a row of w >= 1 pixels that pass error along (all but the pixel ending
// the row), cut at output-byte boundaries so a whole byte's columns have constant dot shifts and
// parities. Left to right: whole bytes, then the pixels before the row end in its byte. Right to
// left: the top byte as far as it reaches, whole bytes down to byte 1, then byte 0 but x = 0.
// byte(k) scans output byte k whole and stores it; partial(i0, count) scans positions i0 ..
// i0+count-1 (x = i left to right, w-1-i right to left) within one byte; flush(k) stores the
// dots gathered for byte k. The row's end pixel and its byte are left to the caller.
template <bool kLtr, unsigned kPerByte, class Byte, class Partial, class Flush>
HALFTONE_FORCE_INLINE inline void ForEachRowByte(std::size_t w, Byte&& byte, Partial&& partial, Flush&& flush) {
  const std::size_t end_byte = (w - 1) / kPerByte;
  if constexpr (kLtr) {
    for (std::size_t k = 0; k < end_byte; ++k) byte(k);
    partial(end_byte * kPerByte, (w - 1) % kPerByte);
  } else if (end_byte == 0) {
    partial(0, w - 1);
  } else {
    partial(0, (w - 1) % kPerByte + 1);
    flush(end_byte);
    for (std::size_t k = end_byte - 1; k > 0; --k) byte(k);
    partial(w - kPerByte, kPerByte - 1);
  }
}

// The working rows plane p of a band of `planes` scans on: its own, except the last plane,
// which scans on the shared rows so they end the band as the plane-by-plane scan leaves them.
template <class Rows>
inline auto LaneRowA(Rows& rows, unsigned p, unsigned planes) {
  return p + 1 == planes ? rows.a() : rows.lane_a(p);
}
template <class Rows>
inline auto LaneRowB(Rows& rows, unsigned p, unsigned planes) {
  return p + 1 == planes ? rows.b() : rows.lane_b(p);
}

}  // namespace halftone
