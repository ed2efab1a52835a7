// A folder of a test's own, removed with everything in it.
#pragma once

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <string_view>

namespace ostrel {

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "ostrel-test-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    path_ = std::filesystem::canonical(name);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }

  const std::filesystem::path& path() const { return path_; }

  // Writes a file, making the folders above it.
  std::filesystem::path write(const std::filesystem::path& name, std::string_view bytes) const {
    const auto file = path_ / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << bytes;
    return file;
  }

 private:
  std::filesystem::path path_;
};

}  // namespace ostrel
