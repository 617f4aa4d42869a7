// The error rows that carry diffusion error through a job.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

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
    lanes_.assign(2 * w * planes, Cell{});
    a_.assign(w, Cell{});
    b_.assign(w, Cell{});
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
  Cell* a() { return a_.data(); }
  // Private working rows of plane p for passes whose planes run side by side (w entries each,
  // the job's width); never read by the sequential passes.
  Cell* lane_a(unsigned p) { return lanes_.data() + 2 * p * width_; }
  Cell* lane_b(unsigned p) { return lanes_.data() + (2 * p + 1) * width_; }
  Cell* b() { return b_.data(); }

 private:
  std::vector<Cell> carry_, a_, b_, lanes_;
  std::size_t width_ = 0;
  unsigned planes_ = 0;
  bool live_ = false;
};

using JobBuffers = ErrorRows<std::int16_t>;
using DoubleJobBuffers = ErrorRows<double>;

}  // namespace halftone
