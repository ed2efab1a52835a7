// Writing to somebody who may be slow, or gone. Blocks: work of a thread of its own.
#pragma once

#include <stop_token>
#include <string_view>

namespace ostrel::console {

// Writes all of `bytes` to `fd`, waiting for a reader as long as need be. False when nobody reads any more.
// Throws `Cancelled` when `stop` fires meanwhile: how much was written is not known then.
bool writeAll(int fd, std::string_view bytes, const std::stop_token& stop);

}  // namespace ostrel::console
