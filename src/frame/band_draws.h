// A band's random draws made ahead of its scan, one byte a draw: (word >> shift) & mask of
// every word the generator would hand out, in order, for scans whose planes' slices of the
// stream are known only once the band's draws are counted, or that read a few bits a draw.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "frame/engine.h"
#include "frame/random_bits.h"

namespace halftone {

// Draws this many or more are shared out among the engine's threads; fewer are drawn on the
// calling thread, where jumping the generator would cost more than the drawing saves (a jump is
// some thousand multiply-adds a bit of the count; a draw about a quarter of a nanosecond).
inline constexpr std::size_t kSpreadDraws = std::size_t{1} << 18;

// Copies of the engine's generator where each of `count` slices of `slice` draws begins:
// starts[k] is the engine's generator jumped k slices on (the engine's own is left as it is).
// Kept in the engine's draw buffer; returns them.
inline RandomBitSource* SliceStarts(Engine& engine, unsigned count, std::size_t slice) {
  RandomBitSource* starts = engine.draws.Starts(count);
  starts[0] = engine.random;
  if (count == 1) return starts;  // no jump to work out
  const RandomJump& jump = engine.draws.Jump(slice);
  for (unsigned k = 1; k < count; ++k) {
    starts[k] = starts[k - 1];
    starts[k].Skip(jump);
  }
  return starts;
}

// n draws as bytes into the engine's draw buffer, which holds `spare` bytes more behind them
// (left as they are); returns the bytes. The generator ends as after n single draws. Where the
// band's scan runs as several lockstep groups (`groups`) on several threads, a long run is cut
// into a part a thread, each drawn from a copy of the generator jumped to where the part
// begins: the same bytes, drawn side by side. A scan of one group draws on its own thread:
// bytes drawn on one core and scanned on another cross between the cores' caches (a four-plane
// band of the double family, one group, ran at 0.87 times with its draws shared out).
inline std::uint8_t* DrawBandBytes(Engine& engine, std::size_t n, std::size_t spare, unsigned shift, std::uint8_t mask,
                                   unsigned groups) {
  constexpr std::size_t kChunk = RandomBitSource::kFieldChunk;
  const unsigned threads = std::min(static_cast<unsigned>(engine.threads.count()), groups);
  const unsigned parts = threads > 1 && n >= kSpreadDraws ? threads : 1u;
  const std::size_t byte_words = (n + spare + sizeof(std::uint32_t) - 1) / sizeof(std::uint32_t);
  std::uint32_t* buffer = engine.draws.Reserve(byte_words + kChunk * parts);
  auto* bytes = reinterpret_cast<std::uint8_t*>(buffer);
  std::uint32_t* chunks = buffer + byte_words;
  if (parts == 1) {
    engine.random.DrawByteFields(bytes, n, shift, mask, chunks);
    return bytes;
  }
  const std::size_t part = (n + parts - 1) / parts;  // every part but the last this long
  RandomBitSource* starts = SliceStarts(engine, parts, part);
  engine.threads.ForEachPlane(parts, [&](unsigned p) {
    const std::size_t first = part * p;
    const std::size_t count = n - first < part ? n - first : part;
    starts[p].DrawByteFields(bytes + first, count, shift, mask, chunks + kChunk * p);
  });
  engine.random = starts[parts - 1];  // the last part ends where n draws end
  return bytes;
}

}  // namespace halftone
