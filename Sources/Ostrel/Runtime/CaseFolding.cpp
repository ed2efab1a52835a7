#include "Runtime/CaseFolding.h"

#include <cstdlib>
#include <memory>

#include <utf8proc.h>

#include "Runtime/Text.h"

namespace ostrel::text {

std::string caseFolded(std::string_view text) {
  constexpr auto kOptions = static_cast<utf8proc_option_t>(UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD);
  utf8proc_uint8_t* folded = nullptr;
  const auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                   static_cast<utf8proc_ssize_t>(text.size()), &folded, kOptions);
  const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(folded, &std::free);
  if (length < 0) return lowercase(text);
  return {reinterpret_cast<const char*>(folded), static_cast<std::size_t>(length)};
}

}  // namespace ostrel::text
