#include "Claude/JsonSpans.h"

#include <algorithm>
#include <ranges>
#include <utility>

namespace ostrel {

namespace {

constexpr std::string_view kSpace = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

void replaceAll(std::string& text, std::string_view what, const std::string& by) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
    text.replace(at, what.size(), by);
}

}  // namespace

const JsonSpans::Item* JsonSpans::Container::find(std::string_view key) const {
  const auto found = std::ranges::find(items | std::views::reverse, key, &Item::key);
  return found == items.rend() ? nullptr : &*found;
}

JsonSpans::JsonSpans(std::string_view text) : text_(text) {
  if (text.contains("\r\n")) newline_ = "\r\n";
  const Container top = root();
  if (top.items.empty()) return;
  const Item& first = top.items.front();
  pretty_ = isPretty(top);
  if (pretty_) {
    const std::string indent = itemIndent(top);
    if (!indent.empty() && indent.find_first_not_of(indent.front()) == std::string::npos) unit_ = indent;
  } else if (text_.substr(0, first.value.begin).ends_with(':')) {
    gap_.clear();
  }
}

JsonSpans::Container JsonSpans::root() const {
  return read(skipSpace(text_.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0), "");
}

JsonSpans::Container JsonSpans::container(const Container& parent, const Item& item) const {
  return read(item.value.begin, itemIndent(parent));
}

std::size_t JsonSpans::skipSpace(std::size_t at) const {
  return std::min(text_.find_first_not_of(kSpace, at), text_.size());
}

std::size_t JsonSpans::skipString(std::size_t at) const {
  for (++at; at < text_.size() && text_[at] != '"'; ++at) {
    if (text_[at] == '\\') ++at;
  }
  return std::min(at + 1, text_.size());
}

std::size_t JsonSpans::skipValue(std::size_t at) const {
  std::size_t depth = 0;
  while (at < text_.size()) {
    const char c = text_[at];
    if (c == '"') {
      at = skipString(at);
    } else if (c == '{' || c == '[') {
      ++depth;
      ++at;
      continue;
    } else if (c == '}' || c == ']') {
      --depth;
      ++at;
    } else {
      at = depth == 0 ? std::min(text_.find_first_of(",]} \t\r\n", at), text_.size()) : at + 1;
    }
    if (depth == 0) return at;
  }
  return text_.size();
}

JsonSpans::Container JsonSpans::read(std::size_t begin, std::string indent) const {
  Container container{{begin, skipValue(begin)}, std::move(indent), {}};
  const bool object = text_[begin] == '{';
  std::size_t at = skipSpace(begin + 1);
  while (at + 1 < container.span.end) {
    Item item;
    item.whole.begin = at;
    if (object) {
      const std::size_t keyEnd = skipString(at);
      item.key = Value::parse(text_.substr(at, keyEnd - at)).get<std::string>();
      at = skipSpace(skipSpace(keyEnd) + 1);  // behind the colon
    }
    item.value = {at, skipValue(at)};
    item.whole.end = item.value.end;
    at = skipSpace(skipSpace(item.value.end) + 1);  // behind the comma or the bracket
    container.items.push_back(std::move(item));
  }
  return container;
}

bool JsonSpans::isPretty(const Container& container) const {
  if (container.items.empty()) return pretty_;
  const std::size_t begin = container.span.begin;
  return text_.substr(begin, container.items.front().whole.begin - begin).contains('\n');
}

std::string JsonSpans::itemIndent(const Container& container) const {
  if (!isPretty(container)) return container.indent;
  if (container.items.empty()) return container.indent + unit_;
  const std::size_t first = container.items.front().whole.begin;
  const std::size_t lineStart = text_.rfind('\n', first) + 1;
  return std::string(text_.substr(lineStart, first - lineStart));
}

std::string JsonSpans::render(const Value& value, const std::string& indent, bool pretty) const {
  std::string text = value.dump(pretty ? static_cast<int>(unit_.size()) : -1, unit_.front(), false,
                                Value::error_handler_t::replace);
  if (pretty) replaceAll(text, "\n", newline_ + indent);
  return text;
}

std::string JsonSpans::renderItem(const Container& container, std::string_view key,
                                  const Value& value) const {
  const bool pretty = isPretty(container);
  std::string text = render(value, itemIndent(container), pretty);
  return key.empty() ? text : Value(key).dump() + ":" + gap_ + text;
}

void JsonSpans::append(const Container& object, std::string_view key, const Value& value) {
  const bool pretty = isPretty(object);
  const std::string item = renderItem(object, key, value);
  if (object.items.empty()) {
    const std::string before = pretty ? newline_ + itemIndent(object) : "";
    const std::string after = pretty ? newline_ + object.indent : "";
    edits_.push_back({{object.span.begin + 1, object.span.end - 1}, before + item + after});
  } else {
    const std::size_t end = object.items.back().whole.end;
    edits_.push_back({{end, end}, "," + (pretty ? newline_ + itemIndent(object) : gap_) + item});
  }
}

void JsonSpans::replace(const Container& parent, const Item& item, const Value& value) {
  edits_.push_back({item.value, render(value, itemIndent(parent), isPretty(parent))});
}

void JsonSpans::remove(const Container& from, const std::vector<const Item*>& items) {
  if (items.size() == from.items.size()) {
    // A text whose only line ends were in here keeps one, so that the next edit knows their kind.
    const bool keepsLine = newline_ == "\r\n" && isPretty(from);
    edits_.push_back({{from.span.begin + 1, from.span.end - 1}, keepsLine ? newline_ : ""});
  } else {
    cut(from, items, "");
  }
}

void JsonSpans::removeAndAppend(const Container& array, const std::vector<const Item*>& items,
                                const Value& value) {
  if (items.empty()) {
    append(array, "", value);
  } else if (items.size() == array.items.size()) {
    edits_.push_back(
        {{array.items.front().whole.begin, array.items.back().whole.end}, renderItem(array, "", value)});
  } else {
    cut(array, items,
        "," + (isPretty(array) ? newline_ + itemIndent(array) : gap_) + renderItem(array, "", value));
  }
}

// Takes out some items but not all, each run of them with one of the commas beside it, and puts `added`
// behind the last one that stays.
void JsonSpans::cut(const Container& from, const std::vector<const Item*>& items, const std::string& added) {
  const auto goes = [&](const Item& item) { return std::ranges::find(items, &item) != items.end(); };
  const Item* kept = nullptr;
  const Item* const end = from.items.data() + from.items.size();
  for (const Item* item = from.items.data(); item != end;) {
    if (!goes(*item)) {
      kept = item++;
      continue;
    }
    const Item* const next = std::find_if_not(item, end, goes);
    if (!kept) {
      edits_.push_back({{item->whole.begin, next->whole.begin}, ""});
    } else {
      edits_.push_back({{kept->whole.end, (next - 1)->whole.end}, next == end ? added : ""});
    }
    item = next;
  }
  if (kept == end - 1) edits_.push_back({{kept->whole.end, kept->whole.end}, added});
}

std::string JsonSpans::result() const {
  auto edits = edits_;
  std::ranges::sort(edits, {}, [](const Edit& edit) { return edit.span.begin; });
  std::string text;
  std::size_t at = 0;
  for (const Edit& edit : edits) {
    text.append(text_.substr(at, edit.span.begin - at)).append(edit.text);
    at = edit.span.end;
  }
  return text.append(text_.substr(at));
}

}  // namespace ostrel
