// A large table object in pages that start out zero. calloc hands back a block of that size as
// fresh pages that the system fills with zeros when they are first touched, so a table that
// stays zero until a loader fills it costs neither the time to clear it nor resident memory
// until it is used. A value-initialised member would clear every byte when the engine is made
// (about 2.5 ms and 8 MiB for the screening tables, in every process that loads the library).
#pragma once

#include <cstdlib>
#include <new>
#include <type_traits>

namespace halftone {

// Owns one T whose bytes are all zero, then `init` applied to it for the members whose default
// is not zero. T must be an aggregate of plain data (an implicit-lifetime type: the block
// holds a T as soon as calloc returns it).
template <class T>
class ZeroFilled {
  static_assert(std::is_aggregate_v<T> && std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>,
                "a table of plain data");

 public:
  template <class Init>
  explicit ZeroFilled(Init&& init) : p_(static_cast<T*>(std::calloc(1, sizeof(T)))) {
    if (p_ == nullptr) throw std::bad_alloc();
    init(*p_);
  }
  ~ZeroFilled() { std::free(p_); }
  ZeroFilled(const ZeroFilled&) = delete;
  ZeroFilled& operator=(const ZeroFilled&) = delete;

  T& operator*() const { return *p_; }

 private:
  T* p_;
};

}  // namespace halftone
