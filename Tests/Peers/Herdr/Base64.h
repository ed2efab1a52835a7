// Base64 for the terminal stream's bytes. Pure functions, any thread.
#pragma once

#include <string>
#include <string_view>

namespace ostrel::standin {

std::string encodeBase64(std::string_view bytes);
// What stands ahead of the first character that is not of the alphabet.
std::string decodeBase64(std::string_view text);

}  // namespace ostrel::standin
