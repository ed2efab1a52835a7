// One message of the app server, taken apart without building a tree: its members stay JSON texts, so that a
// long history is copied nowhere and an id keeps the digits in which it was written. Pure, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ostrel {

// The members of the JSON object that `bytes` is, as views into it: keys decoded, values as written. Nothing
// when `bytes` is no JSON object. `bytes` may be given more capacity. What stands inside a value is checked
// for balanced brackets only; whoever parses the value sees the rest.
std::optional<std::vector<std::pair<std::string, std::string_view>>> jsonMembers(std::string& bytes);

struct CodexMessage {
  std::optional<std::string_view> id, params, result, error;
  bool hasMethod = false;
  std::string method;  // empty where it is no text

  // The views are into `bytes`. A message that is JSON but no object has none of the members. Nothing when
  // `bytes` are not JSON.
  static std::optional<CodexMessage> parse(std::string& bytes);

  // A text or number that stands for a request, in the one spelling in which it is compared and sent back: a
  // number keeps its digits, a text its characters. Nothing for any other value.
  static std::optional<std::string> wireID(std::string_view value);
};

}  // namespace ostrel
