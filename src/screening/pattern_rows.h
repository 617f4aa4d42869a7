// The pattern stacks laid out pattern row first, for the fast pattern screens.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "screening/tables.h"

namespace halftone {

// Block y holds pattern row y of every level side by side, each level's stored row whole. A
// band row of a pattern screen reads its pattern row of many levels: in the stack those rows lie
// 8 or 16 KiB apart, all on the same few sets of the first-level cache, so they keep evicting
// one another; here they are one contiguous block the prefetchers stream in. A copy is made on
// first use (2 or 4 MiB, once per engine) and made again after a load has changed the stack.
class PatternRowBlocks {
 public:
  const std::uint8_t* Mono(const ScreeningTables& tables) { return Current(mono_, tables.mono, tables.pattern_generation); }
  const std::uint8_t* Duo(const ScreeningTables& tables) { return Current(duo_, tables.duo, tables.pattern_generation); }

 private:
  struct Copy {
    std::unique_ptr<std::uint8_t[]> bytes;
    std::uint32_t generation = 0;
  };

  template <class Stack>
  static const std::uint8_t* Current(Copy& copy, const Stack& stack, std::uint32_t generation) {
    if (copy.bytes && copy.generation == generation) return copy.bytes.get();
    constexpr std::size_t kRowBytes = sizeof stack[0][0];
    if (!copy.bytes) copy.bytes = std::make_unique_for_overwrite<std::uint8_t[]>(sizeof stack);
    std::uint8_t* to = copy.bytes.get();
    for (std::size_t row = 0; row < std::size_t{kMatrixSize}; ++row)
      for (std::size_t level = 0; level < std::size_t{kPatternSlots}; ++level, to += kRowBytes)
        std::memcpy(to, stack[level][row].data(), kRowBytes);
    copy.generation = generation;
    return copy.bytes.get();
  }

  Copy mono_, duo_;
};

}  // namespace halftone
