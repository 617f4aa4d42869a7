// Writes the seed corpus: small valid files of each format, one folder per fuzz target.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "../tools/example_tables.h"

namespace {

void Write(const std::filesystem::path& file, const std::vector<std::uint8_t>& bytes) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// Pattern seeds carry their size in the first two bytes (stored minus one).
std::vector<std::uint8_t> PatternSeed(int bits, int a, int b) {
  std::vector<std::uint8_t> seed = {static_cast<std::uint8_t>(a - 1), static_cast<std::uint8_t>(b - 1)};
  const auto file = halftone::examples::PatternStackFile(bits, a, b);
  seed.insert(seed.end(), file.begin(), file.end());
  return seed;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: fuzz_seeds DIR\n");
    return 2;
  }
  namespace ex = halftone::examples;
  const std::filesystem::path dir = argv[1];
  std::vector<std::uint8_t> small(16 * 8);
  for (std::size_t i = 0; i < small.size(); ++i) small[i] = static_cast<std::uint8_t>(i * 7);
  Write(dir / "bitmap" / "small.bmp", ex::BitmapFile(small, 16, 8));
  Write(dir / "bitmap" / "flat.bmp", ex::BitmapFile(std::vector<std::uint8_t>(4 * 4, 200), 4, 4));
  Write(dir / "mono_stack" / "8x4", PatternSeed(1, 8, 4));
  Write(dir / "mono_stack" / "16x2", PatternSeed(1, 16, 2));
  Write(dir / "duo_stack" / "4x4", PatternSeed(2, 4, 4));
  Write(dir / "duo_stack" / "8x2", PatternSeed(2, 8, 2));
  const std::string text = ex::LayerTableText();
  Write(dir / "layer_table" / "first_layers.txt", std::vector<std::uint8_t>(text.begin(), text.begin() + 2000));
  Write(dir / "layer_table" / "three.txt", {'1', ' ', '2', ' ', '3', '\r', '\n'});
  return 0;
}
