// One line of a JSON Lines file, walked by simdjson. Private to the sources of this folder: it brings in
// simdjson's header.
//
// A line is taken or refused as a whole: `LineParser::object` says whether it was one object through to its
// end, and what the visitor gathered counts only then. Strings stay where they are in the line (`RawText`)
// until somebody wants their text, so that the megabytes of tool output in a transcript are stepped over.
#pragma once

#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include <simdjson.h>

namespace ostrel {

// A JSON string as it stands in a line, known by what follows its opening quote. Valid while the line's bytes
// are.
class RawText {
 public:
  RawText() = default;
  explicit RawText(const char* begin) : begin_(begin) {}

  explicit operator bool() const { return begin_ != nullptr; }
  bool empty() const { return *begin_ == '"'; }
  // Whether its text is that of a literal without quotes and escapes, which is shorter than the padding; no
  // for a missing string.
  template <std::size_t N>
  bool is(const char (&literal)[N]) const {
    static_assert(N <= simdjson::SIMDJSON_PADDING);
    if (!begin_) return false;
    if (std::memcmp(begin_, literal, N - 1) == 0 && begin_[N - 1] == '"') return true;
    std::size_t same = 0;
    while (same < N - 1 && begin_[same] == literal[same]) ++same;
    return begin_[same] == '\\' && equals({literal, N - 1});
  }
  // Whether its text is `text`; no for a missing string.
  bool equals(std::string_view text) const;
  // The first byte of its text, for a first choice among names; 0 for an empty string.
  char initial() const { return *begin_ == '"' ? '\0' : *begin_ == '\\' ? decodedInitial() : *begin_; }
  // Appends its text. False for an escape that JSON doesn't know: the line is no JSON then. Half of a
  // surrogate pair gives U+FFFD; Claude Code writes such where it cuts a text in the middle of an emoji.
  bool appendTo(std::string& out) const;
  // The text where it stands; nothing where it has escapes.
  std::optional<std::string_view> plain() const;

 private:
  char decodedInitial() const;

  const char* begin_ = nullptr;
};

class LineParser {
 public:
  using Value = simdjson::ondemand::value;

  // Walks the line's object, calling `visit(key, value)` for each member, the key a `RawText`. True when the
  // line is one object, whole and without error; the visitor's own errors (see below) refuse the line too.
  // Ill-formed UTF-8 is repaired first. `readable` bytes may be read from the line's start. Strings handed
  // out live until the next call.
  template <class Visit>
  bool object(std::string_view line, std::size_t readable, Visit visit);

  // For visitors: the same for a value that is an object; `element(value)` for an array's elements. A value
  // of another type is left alone.
  template <class Visit>
  static simdjson::error_code members(Value& value, Visit visit);
  template <class Visit>
  static simdjson::error_code elements(Value& value, Visit visit);
  // `out` becomes the value's string, or missing when the value is no string.
  static simdjson::error_code text(Value& value, RawText& out);
  // `out` tells whether the value is the boolean true.
  static simdjson::error_code isTrue(Value& value, bool& out);

  // Gives back the memory that an unusually long line took.
  void trimMemory();

 private:
  // The line in a place where the parser may read past its end; empty where it can't be an object.
  std::string_view prepared(std::string_view line, std::size_t readable);
  std::string_view repaired(std::string_view line);
  bool reserve(std::size_t length);
  template <class Visit>
  static simdjson::error_code walk(simdjson::ondemand::object& object, Visit& visit);
  template <class Visit>
  simdjson::error_code document(std::string_view line, Visit& visit);

  simdjson::ondemand::parser parser_;
  std::string copy_;
};

template <class Visit>
bool LineParser::object(std::string_view line, std::size_t readable, Visit visit) {
  line = prepared(line, readable);
  if (line.empty() || !reserve(line.size())) return false;
  simdjson::error_code error = document(line, visit);
  if (error == simdjson::UTF8_ERROR) {
    line = repaired(line);
    error = reserve(line.size()) ? document(line, visit) : simdjson::MEMALLOC;
  }
  return error == simdjson::SUCCESS;
}

template <class Visit>
simdjson::error_code LineParser::document(std::string_view line, Visit& visit) {
  simdjson::ondemand::document document;
  if (auto error = parser_.iterate(line, line.size() + simdjson::SIMDJSON_PADDING).get(document))
    return error;
  simdjson::ondemand::object object;
  if (auto error = document.get_object().get(object)) return error;
  if (auto error = walk(object, visit)) return error;
  const bool ended = document.current_location().error() == simdjson::OUT_OF_BOUNDS;
  return ended ? simdjson::SUCCESS : simdjson::TRAILING_CONTENT;
}

template <class Visit>
simdjson::error_code LineParser::walk(simdjson::ondemand::object& object, Visit& visit) {
  for (auto result : object) {
    simdjson::ondemand::field field;
    if (auto error = std::move(result).get(field)) return error;
    if (simdjson::error_code error = visit(RawText(field.key().raw()), field.value())) return error;
  }
  return simdjson::SUCCESS;
}

template <class Visit>
simdjson::error_code LineParser::members(Value& value, Visit visit) {
  simdjson::ondemand::object object;
  const auto error = value.get_object().get(object);
  if (error == simdjson::INCORRECT_TYPE) return simdjson::SUCCESS;
  return error ? error : walk(object, visit);
}

template <class Visit>
simdjson::error_code LineParser::elements(Value& value, Visit visit) {
  simdjson::ondemand::array array;
  const auto error = value.get_array().get(array);
  if (error == simdjson::INCORRECT_TYPE) return simdjson::SUCCESS;
  if (error) return error;
  for (auto result : array) {
    Value element;
    if (auto failed = std::move(result).get(element)) return failed;
    if (simdjson::error_code failed = visit(element)) return failed;
  }
  return simdjson::SUCCESS;
}

}  // namespace ostrel
