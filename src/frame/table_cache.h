// The last decision table a fast scan built, kept for the next band call that asks for the same
// one. A table follows from a few level values, but it is tens of kilobytes; a host that sends
// one-row bands would otherwise rebuild it for every row, at a cost near the band's own.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

namespace halftone {

class TableCache {
 public:
  static constexpr std::size_t kBytes = 80 * 1024;
  static constexpr std::size_t kKeyBytes = 64;

  // The table `make()` returns, from the cache when the last table made was of the same kind
  // (Table and Key types) with the same key bytes. The storage is allocated at the first call,
  // so bands after a job's first allocate nothing.
  template <class Table, class Key, class Make>
  const Table& Get(const Key& key, Make&& make) {
    static_assert(sizeof(Table) <= kBytes && alignof(Table) <= alignof(Storage));
    static_assert(std::is_trivially_copyable_v<Table> && std::is_trivially_destructible_v<Table>);
    static_assert(sizeof(Key) <= kKeyBytes && std::is_trivially_copyable_v<Key>);
    // Keys compare by their bytes: every byte must belong to a value.
    static_assert(std::is_empty_v<Key> || std::has_unique_object_representations_v<Key>);
    if (!storage_) storage_ = std::make_unique<Storage>();
    Table* table = reinterpret_cast<Table*>(storage_->bytes);
    const void* kind = &kKind<Table, Key>;
    const std::size_t key_bytes = std::is_empty_v<Key> ? 0 : sizeof(Key);
    if (kind_ == kind && std::memcmp(key_, &key, key_bytes) == 0) return *std::launder(table);
    kind_ = nullptr;  // a table half made is no table
    table = ::new (storage_->bytes) Table(make());
    std::memcpy(key_, &key, key_bytes);
    kind_ = kind;
    return *table;
  }

  // Forgets the table (for tests and when the storage must go).
  void Clear() { kind_ = nullptr; }

 private:
  template <class Table, class Key>
  static constexpr char kKind = 0;  // its address names a (Table, Key) pair

  struct alignas(64) Storage {
    std::byte bytes[kBytes];
  };
  std::unique_ptr<Storage> storage_;
  const void* kind_ = nullptr;
  unsigned char key_[kKeyBytes] = {};
};

}  // namespace halftone
