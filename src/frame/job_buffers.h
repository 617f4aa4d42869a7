// The error rows that carry diffusion error through a job.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

#include "frame/band.h"

namespace halftone {

// Three rows per job: the band-carry row (w entries per plane, plane p at p * w) hands error
// from the last row of a band to row 0 of the same plane in the next band; working rows A and
// B (w entries each) swap roles row by row in the serpentine scan. Made at the start of a job
// at that job's width and plane count, released at its end or at the next start.
//
// Cell is int16_t for the integer families (stored width 16 bits, arithmetic in int) and
// double for the double-precision family, which owns a separate set.
template <class Cell>
class ErrorRows {
 public:
  // Releases any rows of an earlier job and makes fresh ones; the carry row is filled with
  // `carry_preset`, the working rows with zero.
  void Start(std::size_t w, unsigned planes, Cell carry_preset = Cell{}) {
    Release();
    carry_.assign(w * planes, carry_preset);
    stride_ = RowStride(w);
    working_.assign((2 * planes + 2) * stride_, Cell{});
#if defined(__SANITIZE_ADDRESS__)
    // The skew after each row is out of bounds: a read past a row's end is still caught.
    for (unsigned r = 0; r < 2 * planes + 2; ++r)
      __asan_poison_memory_region(Working(r) + w, (stride_ - w) * sizeof(Cell));
#endif
    width_ = w;
    planes_ = planes;
    live_ = true;
  }

  // Frees every row and forgets the job.
  void Release() { *this = ErrorRows(); }

  bool live() const { return live_; }
  std::size_t width() const { return width_; }
  unsigned planes() const { return planes_; }

  // A band fits the job when the job was started and the band is no wider and has no more
  // planes than the start-of-job call.
  bool Admits(std::size_t w, unsigned planes) const { return live_ && w <= width_ && planes <= planes_; }

  // Carry entries of plane p in a band of width w (the band's width, not the job's).
  Cell* carry(unsigned p, std::size_t w) { return carry_.data() + p * w; }
  Cell* carry_all() { return carry_.data(); }
  Cell* a() { return Working(2 * planes_); }
  // Private working rows of plane p for passes whose planes run side by side (w entries each,
  // the job's width); never read by the sequential passes.
  Cell* lane_a(unsigned p) { return Working(2 * p); }
  Cell* lane_b(unsigned p) { return Working(2 * p + 1); }
  Cell* b() { return Working(2 * planes_ + 1); }

 private:
  // The working rows lie in one block, each kRowSkew bytes further into a 4 KiB page than the
  // one before, whatever the width. Rows a whole number of pages apart (a width of 2048 16-bit
  // cells, say) put the same pixel of every lane at the same page offset, and a load that
  // matches a store to another lane's row in those bits waits for it: one-row bands of a
  // four-plane group ran at a third of their speed.
  static constexpr std::size_t kPage = 4096, kRowSkew = 256;
  static std::size_t RowStride(std::size_t w) {
    const std::size_t bytes = (w * sizeof(Cell) + kPage - 1) / kPage * kPage + kRowSkew;
    return bytes / sizeof(Cell);
  }
  Cell* Working(unsigned row) { return working_.data() + row * stride_; }

  std::vector<Cell> carry_, working_;
  std::size_t stride_ = 0;
  std::size_t width_ = 0;
  unsigned planes_ = 0;
  bool live_ = false;
};

using JobBuffers = ErrorRows<std::int16_t>;
using DoubleJobBuffers = ErrorRows<double>;

}  // namespace halftone
