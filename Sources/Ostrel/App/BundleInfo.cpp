#include "App/BundleInfo.h"

#include "Runtime/Files.h"

namespace ostrel {

namespace {

constexpr std::size_t kLargestFile = 1u << 20;

}  // namespace

BundleInfo BundleInfo::ofProgram(const std::filesystem::path& program) {
  const auto bytes =
      files::read(program.parent_path().parent_path() / "share/ostrel/bundle.json", kLargestFile);
  if (!bytes) return {};
  return BundleInfo(json::parse(*bytes).value_or(Json()));
}

std::optional<std::string> BundleInfo::text(std::string_view key) const {
  auto value = json::string(values_, key);
  return value && !value->empty() ? value : std::nullopt;
}

}  // namespace ostrel
