#include "App/FilePaths.h"

#include <algorithm>

#include "Runtime/Text.h"

namespace ostrel {

namespace {

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isPart(char c) {
  return isLetter(c) || isDigit(c) || c == '/' || c == '.' || c == '_' || c == '-' || c == '~' || c == '+' ||
         c == '@' || static_cast<unsigned char>(c) >= 0x80;
}

bool hasExtension(std::string_view path) {
  const std::string_view name = text::lastPathComponent(path);
  const auto dot = name.rfind('.');
  if (dot == std::string_view::npos || dot + 1 == name.size() || name.size() - dot > 9) return false;
  return isLetter(name[dot + 1]);
}

bool looksLikePath(std::string_view path) {
  if (path.contains("//")) return false;  // of an address
  if (path.starts_with("~/") || path.starts_with("./") || path.starts_with("../")) return path.size() > 3;
  const auto slash = path.find('/', 1);
  // "/help" is a command.
  if (path.starts_with('/'))
    return (slash != std::string_view::npos && slash + 1 < path.size()) || hasExtension(path);
  return slash != std::string_view::npos && !path.starts_with('~') && hasExtension(path);
}

// How far a ":12" or ":12:3" reaches from `at`.
std::size_t pastLine(std::string_view text, std::size_t at) {
  for (int part = 0; part < 2; ++part) {
    std::size_t end = at + 1;
    while (end < text.size() && isDigit(text[end])) ++end;
    if (at >= text.size() || text[at] != ':' || end == at + 1) break;
    at = end;
  }
  return at;
}

}  // namespace

std::vector<FilePath> filePaths(std::string_view text) {
  std::vector<FilePath> found;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t end = at;
    while (end < text.size() && isPart(text[end])) ++end;
    if (end == at) {
      ++at;
      continue;
    }
    std::size_t last = end;
    while (last > at && (text[last - 1] == '.' || text[last - 1] == '-')) --last;
    const std::string_view path = text.substr(at, last - at);
    if (looksLikePath(path)) {
      const std::size_t past = last == end ? pastLine(text, end) : last;
      found.push_back({at, past - at, std::string(path)});
      end = std::max(end, past);
    }
    at = end;
  }
  return found;
}

std::filesystem::path resolvePath(std::string_view path, const std::filesystem::path& folder,
                                  const std::filesystem::path& home) {
  if (path.empty()) return {};
  if (path == "~" || path.starts_with("~/")) return home / path.substr(std::min<std::size_t>(2, path.size()));
  if (path.starts_with('/')) return std::filesystem::path(path).lexically_normal();
  if (!folder.is_absolute()) return {};
  return (folder / path).lexically_normal();
}

}  // namespace ostrel
