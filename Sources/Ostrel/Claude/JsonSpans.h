// Edits the text of a JSON value in place: finds where members and elements stand, and takes out, puts in or
// replaces some of them in the layout that it finds around them. Any thread.
//
// The text must be valid JSON (parse it first). Edits are gathered and made by `result`; they must not
// overlap. Whoever uses it checks the result by parsing it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace ostrel {

class JsonSpans {
 public:
  using Value = nlohmann::ordered_json;

  // Offsets of the text.
  struct Span {
    std::size_t begin = 0;
    std::size_t end = 0;
  };
  // An element of an array, or a member of an object with its key.
  struct Item {
    std::string key;
    Span whole;
    Span value;
  };
  struct Container {
    Span span;           // with its brackets
    std::string indent;  // of the line on which its members' parent stands
    std::vector<Item> items;
    // The member that a parser would give: the last of its name.
    const Item* find(std::string_view key) const;
  };

  explicit JsonSpans(std::string_view text);

  Container root() const;
  // The value of `item`, an object or an array.
  Container container(const Container& parent, const Item& item) const;

  // Puts a member behind the object's last one.
  void append(const Container& object, std::string_view key, const Value& value);
  void replace(const Container& parent, const Item& item, const Value& value);
  // Takes out items, given in their order.
  void remove(const Container& from, const std::vector<const Item*>& items);
  // Takes elements out of an array and puts one at its end.
  void removeAndAppend(const Container& array, const std::vector<const Item*>& items, const Value& value);

  std::string result() const;

 private:
  struct Edit {
    Span span;
    std::string text;
  };

  std::size_t skipSpace(std::size_t at) const;
  std::size_t skipString(std::size_t at) const;
  std::size_t skipValue(std::size_t at) const;
  Container read(std::size_t begin, std::string indent) const;
  bool isPretty(const Container& container) const;
  std::string itemIndent(const Container& container) const;
  std::string render(const Value& value, const std::string& indent, bool pretty) const;
  std::string renderItem(const Container& container, std::string_view key, const Value& value) const;
  void cut(const Container& from, const std::vector<const Item*>& items, const std::string& added);

  std::string_view text_;
  std::string newline_ = "\n";
  std::string unit_ = "  ";  // one step of indentation; one kind of blank
  bool pretty_ = true;       // members stand on lines of their own
  std::string gap_ = " ";    // what follows a colon, and a comma within a line
  std::vector<Edit> edits_;
};

}  // namespace ostrel
