// A folder that lives as long as a test.
#pragma once
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace MELDO_GLOBAL::host {

class TempFolder {
 public:
  TempFolder() {
    static int count = 0;
    mPath = std::filesystem::temp_directory_path() /
            ("sulva_test_" + std::to_string(getpid()) + "_" + std::to_string(count++));
    std::filesystem::create_directories(mPath);
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& Path() const { return mPath; }
  /// Writes a file and returns its path.
  std::filesystem::path Write(const std::string& name, std::string_view bytes) const {
    std::ofstream(mPath / name, std::ios::binary) << bytes;
    return mPath / name;
  }

 private:
  std::filesystem::path mPath;
};

}  // namespace MELDO_GLOBAL::host
