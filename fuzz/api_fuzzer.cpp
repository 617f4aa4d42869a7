// The whole exported surface as a host could drive it: set-up text, tone-curve and table files
// in the host folder, thread counts, band calls of every registry method at any size, phase and
// plane count, the lookup routines, the job signals. Buffers are allocated exactly to what the
// call may touch, so AddressSanitizer sees any byte outside them, and after every call:
//   - the input band is unchanged;
//   - a refused band call returned a documented code and left its dot band untouched;
//   - a band that starts a job inside the contract is done (0);
//   - the lookup routines return 0 inside their contract and 20401 outside it.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "halftone/halftone.h"

namespace {

// Reads the fuzzer's bytes as a stream of small integers; past the end everything is zero.
class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  bool more() const { return pos_ < size_; }
  unsigned u8() { return pos_ < size_ ? data_[pos_++] : 0u; }
  unsigned u16() { return u8() | (u8() << 8); }
  unsigned below(unsigned n) { return n == 0 ? 0 : u16() % n; }
  std::vector<std::uint8_t> run(std::size_t most) {
    const std::size_t n = std::min<std::size_t>(below(static_cast<unsigned>(most) + 1), size_ - pos_);
    std::vector<std::uint8_t> out(data_ + pos_, data_ + pos_ + n);
    pos_ += n;
    return out;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_, pos_ = 0;
};

[[noreturn]] void Fail(const char* what, const char* method, int rc) {
  std::fprintf(stderr, "api_fuzzer: %s (%s, returned %d)\n", what, method, rc);
  std::abort();
}

std::filesystem::path& HostFolder() {
  static std::filesystem::path folder;
  return folder;
}

void WriteFile(const std::filesystem::path& file, const std::vector<std::uint8_t>& bytes) {
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::size_t Stride(std::size_t pixels, int bits) { return ((pixels * static_cast<std::size_t>(bits) + 31) >> 5) * 4; }

// An allocation of exactly `n` bytes (at least one, so the pointer is real), filled with `fill`.
std::unique_ptr<std::uint8_t[]> Exact(std::size_t n, std::uint8_t fill) {
  auto p = std::make_unique<std::uint8_t[]>(n == 0 ? 1 : n);
  std::memset(p.get(), fill, n == 0 ? 1 : n);
  return p;
}

std::vector<halftone_method_info>& Methods() {
  static std::vector<halftone_method_info> all = [] {
    std::vector<halftone_method_info> v;
    for (int i = 0; i < halftone_method_count(); ++i) {
      halftone_method_info info{};
      if (halftone_method_get(i, &info) == 0) v.push_back(info);
    }
    return v;
  }();
  return all;
}

void SetUp(Bytes& in) {
  const int mode = static_cast<int>(in.u8()) - 8;
  auto text = in.run(48);
  text.push_back(0);
  if (Itsdiufiavs(mode, reinterpret_cast<const char*>(text.data())) != 0) Fail("Itsdiufiavs", "set-up", -1);
}

void Load(Bytes& in) {
  static const char* const kName = "fuzzed";
  WriteFile(HostFolder() / "Moths" / kName, in.run(70000));
  const int a = static_cast<int>(in.u16() % 300) - 8, b = static_cast<int>(in.u16() % 300) - 8;
  int rc = 0;
  switch (in.below(6)) {
    case 0: rc = PuaningFa(kName, a, b); break;
    case 1: rc = PuaningFa13(kName, a, b); break;
    case 2: rc = KaiDuaning(kName, a, b); break;
    case 3: rc = NingJing(kName, a, b); break;
    case 4: rc = NiceMents(kName, a, b); break;
    default: rc = SincesKai(); break;
  }
  const int status = halftone_last_load_status();
  for (int code : {rc, status})
    if (code != 0 && code != 20101 && code != 20103 && code != 20104 && code != 20301 && code != 20302)
      Fail("undocumented loader code", "loader", code);
}

void Band(Bytes& in) {
  std::vector<const halftone_method_info*> banded;
  for (const auto& m : Methods())
    if (m.entry_kind == HALFTONE_ENTRY_BAND || m.entry_kind == HALFTONE_ENTRY_BAND_UNSIGNED) banded.push_back(&m);
  const halftone_method_info& m = *banded[in.below(static_cast<unsigned>(banded.size()))];
  const std::size_t w = in.below(301), h = in.below(21), planes = in.below(7);
  const unsigned phase = in.below(4) == 0 ? in.u8() : (in.below(2) ? 1u : (in.below(2) ? 0u : 3u));
  const unsigned flags = HALFTONE_FLAGS(planes, phase) | (in.u8() & 0xFFu) | ((in.u8() & 0xFFu) << 24);
  const std::size_t src_size = Stride(w, 8) * planes * h, dst_size = Stride(w, m.output_bits) * planes * h;
  auto src = Exact(src_size, 0);
  for (std::size_t i = 0; i < src_size; ++i) src[i] = static_cast<std::uint8_t>(in.u8() ^ (i * 131));
  std::vector<std::uint8_t> src_before(src.get(), src.get() + src_size);
  auto dst = Exact(dst_size, 0xA5);
  const int rc = m.entry_kind == HALFTONE_ENTRY_BAND
                     ? reinterpret_cast<halftone_band_fn>(m.entry)(src.get(), dst.get(), static_cast<int>(w),
                                                                   static_cast<int>(h), flags)
                     : reinterpret_cast<halftone_band_unsigned_fn>(m.entry)(src.get(), dst.get(), static_cast<unsigned>(w),
                                                                            static_cast<unsigned>(h), flags);
  if (src_size > 0 && std::memcmp(src.get(), src_before.data(), src_size) != 0) Fail("the input band changed", m.name, rc);
  if (rc == HALFTONE_ERR_OUT_OF_CONTRACT) {
    for (std::size_t i = 0; i < dst_size; ++i)
      if (dst[i] != 0xA5) Fail("a refused call wrote into its band", m.name, rc);
  } else if (rc != 0) {
    Fail("undocumented band code", m.name, rc);
  }
  // A job started on a real band of a few planes is inside every routine's contract.
  if (phase == HALFTONE_PHASE_START && w > 0 && h > 0 && planes >= 1 && planes <= 4 && rc != 0)
    Fail("a job's first band was refused", m.name, rc);
}

void Lookup(Bytes& in) {
  std::vector<const halftone_method_info*> lookup;
  for (const auto& m : Methods())
    if (m.entry_kind == HALFTONE_ENTRY_LOOKUP || m.entry_kind == HALFTONE_ENTRY_LOOKUP_REF) lookup.push_back(&m);
  const halftone_method_info& m = *lookup[in.below(static_cast<unsigned>(lookup.size()))];
  const int w = static_cast<int>(in.below(70)) - 2, h = static_cast<int>(in.below(70)) - 2;
  std::vector<int> table(256);
  for (int& v : table) v = static_cast<int>(static_cast<std::int16_t>(in.u16())) % 600;
  const std::size_t uw = static_cast<std::size_t>(std::max(w, 0)), uh = static_cast<std::size_t>(std::max(h, 0));
  auto src = Exact(Stride(uw, 8) * uh, 0);
  for (std::size_t i = 0; i < Stride(uw, 8) * uh; ++i) src[i] = static_cast<std::uint8_t>(in.u8());
  // Turned members write w rows of h pixels; the two that also OR the last row unturned need
  // room for both layouts.
  const std::size_t dst_size = std::max(Stride(uw, 1) * uh, Stride(uh, 1) * uw);
  auto dst = Exact(dst_size, 0);
  unsigned char* out = dst.get();
  const int rc = m.entry_kind == HALFTONE_ENTRY_LOOKUP_REF
                     ? reinterpret_cast<int (*)(unsigned char*, unsigned char*&, int, int, int*, unsigned char*)>(
                           m.entry)(src.get(), out, w, h, table.data(), nullptr)
                     : reinterpret_cast<halftone_lookup_fn>(m.entry)(src.get(), out, w, h, table.data(), nullptr);
  if (out != dst.get()) Fail("the buffer reference was replaced", m.name, rc);
  const bool inside = w >= 1 && h >= 1;
  if (rc != (inside ? 0 : HALFTONE_ERR_OUT_OF_CONTRACT) && rc != HALFTONE_ERR_NOT_PROVIDED)
    Fail("lookup routine code", m.name, rc);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char pattern[] = "/tmp/halftone-api-fuzz-XXXXXX";
  if (mkdtemp(pattern) == nullptr) return 1;
  HostFolder() = pattern;
  std::filesystem::create_directories(HostFolder() / "Moths");
  halftone_set_host_folder(pattern);
  halftone_set_fixed_time(1700000000);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes in(data, size);
  for (int calls = 0; in.more() && calls < 24; ++calls) {
    switch (in.below(9)) {
      case 0: SetUp(in); break;
      case 1: WriteFile(HostFolder() / "ToneAry.ham", in.run(4096)); SetUp(in); break;
      case 2: Load(in); break;
      case 3: {
        const int n = static_cast<int>(in.below(3)) + 1;
        if (halftone_set_threads(n) != n) Fail("halftone_set_threads", "threads", n);
        break;
      }
      case 4: case 5: Band(in); break;
      case 6: Lookup(in); break;
      case 7: {
        const int made = khjhusecx(), waited = sinxcdke34i(0);
        if (made != 0 || waited < 0 || waited > 2 || giwncwcg7w() != 1) Fail("job signals", "signals", waited);
        break;
      }
      default: halftone_set_fixed_time(static_cast<long long>(in.u16()) * 97 - 1000); break;
    }
  }
  return 0;
}
