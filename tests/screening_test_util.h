// Shared helpers of the screening tests: a private Moths folder and file writing.
#pragma once

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace screening_test {

// A fresh "<tmp>/<unique>/Moths" folder, removed again at the end of the test.
class MothsFolder {
 public:
  MothsFolder() {
    static std::atomic<int> counter{0};
    root_ = std::filesystem::temp_directory_path() /
            ("halftone_screening_" + std::to_string(std::random_device{}()) + "_" + std::to_string(counter++));
    std::filesystem::create_directories(root_ / "Moths");
  }
  ~MothsFolder() {
    std::error_code ec;
    std::filesystem::remove_all(root_, ec);
  }
  std::string host() const { return root_.string() + "/"; }
  std::filesystem::path moths() const { return root_ / "Moths"; }
  void Write(const std::string& name, const std::vector<std::uint8_t>& bytes) const {
    std::ofstream(moths() / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  void Write(const std::string& name, const std::string& text) const {
    Write(name, std::vector<std::uint8_t>(text.begin(), text.end()));
  }

 private:
  std::filesystem::path root_;
};

}  // namespace screening_test
