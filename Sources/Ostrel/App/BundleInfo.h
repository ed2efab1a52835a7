// What the installed program knows of itself: its identifier, its version, the endpoints and keys it was
// built with. They stand in a JSON file of the installation. A program run from a build tree has none, and so
// no bundle identifier: it keeps its banners to itself, checks for no updates, and names its version
// "development".
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "Runtime/Json.h"

namespace ostrel {

class BundleInfo {
 public:
  BundleInfo() = default;  // absent
  explicit BundleInfo(Json values) : values_(std::move(values)) {}

  // Reads "share/ostrel/bundle.json" of the installation whose "bin" or "libexec" folder holds `program`.
  // Absent where that is missing or no JSON object. Blocks.
  static BundleInfo ofProgram(const std::filesystem::path& program);

  std::optional<std::string> identifier() const { return text("CFBundleIdentifier"); }
  std::optional<std::string> version() const { return text("CFBundleShortVersionString"); }

  // A text that is not empty.
  std::optional<std::string> text(std::string_view key) const;

 private:
  Json values_;
};

}  // namespace ostrel
