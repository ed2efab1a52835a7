#include "Options.h"

#include <charconv>
#include <optional>

#include <fmt/format.h>

namespace ostrel::console {

namespace {

// Seconds as people write them ("2", "0.5"), from 0 to a day.
std::optional<std::chrono::milliseconds> parseSeconds(std::string_view word) {
  double seconds = 0;
  const auto [end, error] =
      std::from_chars(word.data(), word.data() + word.size(), seconds, std::chars_format::fixed);
  if (error != std::errc{} || end != word.data() + word.size() || !(seconds >= 0 && seconds <= 86'400)) {
    return std::nullopt;
  }
  return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
}

std::expected<Options, std::string> hookOptions(std::span<const std::string> words) {
  using Hook = Options::Hook;
  Options options;
  options.command = Options::Command::hook;
  if (words.size() == 2 && (words[1] == "--help" || words[1] == "-h")) {
    options.command = Options::Command::help;
    return options;
  }
  for (const auto& [word, action] :
       {std::pair("on", Hook::on), {"off", Hook::off}, {"status", Hook::status}}) {
    if (words.size() != 2 || words[1] != word) continue;
    options.hook = action;
    return options;
  }
  return std::unexpected("hook needs one of \"on\", \"off\" and \"status\"");
}

}  // namespace

std::expected<Options, std::string> parseOptions(std::span<const std::string> words) {
  using Command = Options::Command;
  if (words.empty()) return std::unexpected("a command is missing");
  Options options;
  const std::string& command = words.front();
  if (command == "--help" || command == "-h" || command == "help") {
    options.command = Command::help;
  } else if (command == "--version") {
    options.command = Command::version;
  } else if (command == "agents") {
    options.command = Command::agents;
  } else if (command == "watch") {
    options.command = Command::watch;
  } else if (command == "serve") {
    options.command = Command::serve;
  } else if (command == "hook") {
    return hookOptions(words);
  } else {
    return std::unexpected(fmt::format("unknown command \"{}\"", command));
  }
  const bool lists = options.command == Command::agents || options.command == Command::watch;
  for (std::size_t i = 1; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (lists && word == "--json") {
      options.json = true;
    } else if (lists && (word == "--help" || word == "-h")) {
      options.command = Command::help;
    } else if (options.command == Command::agents && (word == "--wait" || word.starts_with("--wait="))) {
      const bool joined = word != "--wait";
      if (!joined && ++i == words.size()) return std::unexpected("--wait needs a number of seconds");
      const std::string value = joined ? word.substr(7) : words[i];
      const auto wait = parseSeconds(value);
      if (!wait) return std::unexpected(fmt::format("--wait needs a number of seconds, not \"{}\"", value));
      options.wait = *wait;
    } else {
      return std::unexpected(fmt::format("unknown word \"{}\"", word));
    }
  }
  return options;
}

}  // namespace ostrel::console
