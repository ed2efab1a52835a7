// Runs the `herdr` command. Blocks: background work only.
#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <stop_token>
#include <string>
#include <vector>

#include "Runtime/MainLoop.h"

namespace ostrel::HerdrCommand {

inline constexpr std::size_t kLargestOutput = 8'000'000;  // bytes
inline constexpr Duration kUsualTime = std::chrono::seconds(8);

// What the command printed. Throws `Failure` in the user's words: the system's when it can't be started,
// Herdr's own (`HerdrProtocol::Refusal`) when it ended with a failure and says why, otherwise that the
// request failed (running out of time included) or that the answer is too long. Throws `Cancelled` when
// `stop` fires.
std::string run(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                const std::map<std::string, std::string>& environment, Duration limit, std::stop_token stop);

}  // namespace ostrel::HerdrCommand
