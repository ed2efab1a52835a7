// Texts compared without regard to case. Pure, any thread.
#pragma once

#include <string>
#include <string_view>

namespace ostrel::text {

// By Unicode's full folding: "Straße" and "STRASSE" give the same. Nothing that is shown. What is no UTF-8 is
// put in lower case as far as it is.
std::string caseFolded(std::string_view text);

}  // namespace ostrel::text
