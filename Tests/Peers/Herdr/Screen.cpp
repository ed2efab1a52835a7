#include "Screen.h"

#include <array>
#include <utility>
#include <vector>
#include <vterm.h>

#include <fmt/format.h>

namespace ostrel::standin {

namespace {

constexpr std::size_t kScrolledLines = 1000;

void trimEnd(std::string& line) { line.erase(line.find_last_not_of(' ') + 1); }

void appendUtf8(std::string& text, std::uint32_t code) {
  const auto byte = [&text](std::uint32_t value) { text += static_cast<char>(value); };
  if (code < 0x80) {
    byte(code);
  } else if (code < 0x800) {
    byte(0xC0 | code >> 6);
    byte(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    byte(0xE0 | code >> 12);
    byte(0x80 | (code >> 6 & 0x3F));
    byte(0x80 | (code & 0x3F));
  } else {
    byte(0xF0 | code >> 18);
    byte(0x80 | (code >> 12 & 0x3F));
    byte(0x80 | (code >> 6 & 0x3F));
    byte(0x80 | (code & 0x3F));
  }
}

}  // namespace

struct Screen::Callbacks {
  static int property(VTermProp property, VTermValue* value, void* user) {
    if (property == VTERM_PROP_TITLE && value->string) static_cast<Screen*>(user)->title_ = value->string;
    return 1;
  }
  static int scrolled(int columns, const VTermScreenCell* cells, void* user) {
    std::string line;
    for (int i = 0; i < columns; i += cells[i].width > 1 ? cells[i].width : 1) {
      if (cells[i].chars[0] == 0) line += ' ';
      for (const std::uint32_t code : cells[i].chars) {
        if (code == 0) break;
        appendUtf8(line, code);
      }
    }
    trimEnd(line);
    auto& lines = static_cast<Screen*>(user)->scrolled_;
    lines.push_back(std::move(line));
    if (lines.size() > kScrolledLines) lines.pop_front();
    return 1;
  }
  static void output(const char* bytes, std::size_t count, void* user) {
    static_cast<Screen*>(user)->reply_({bytes, count});
  }
};

void Screen::Free::operator()(VTerm* terminal) const { ::vterm_free(terminal); }

Screen::Screen(int columns, int rows, Reply reply)
    : reply_(std::move(reply)), terminal_(::vterm_new(rows, columns)) {
  static constexpr VTermScreenCallbacks kCallbacks = {
      .damage = nullptr,
      .moverect = nullptr,
      .movecursor = nullptr,
      .settermprop = Callbacks::property,
      .bell = nullptr,
      .resize = nullptr,
      .sb_pushline = Callbacks::scrolled,
      .sb_popline = nullptr,
  };
  ::vterm_set_utf8(terminal_.get(), 1);
  ::vterm_output_set_callback(terminal_.get(), Callbacks::output, this);
  screen_ = ::vterm_obtain_screen(terminal_.get());
  ::vterm_screen_set_callbacks(screen_, &kCallbacks, this);
  ::vterm_screen_enable_altscreen(screen_, 1);
  ::vterm_screen_reset(screen_, 1);
}

void Screen::feed(std::string_view bytes) {
  ::vterm_input_write(terminal_.get(), bytes.data(), bytes.size());
}

int Screen::columns() const {
  int rows = 0, columns = 0;
  ::vterm_get_size(terminal_.get(), &rows, &columns);
  return columns;
}

int Screen::rows() const {
  int rows = 0, columns = 0;
  ::vterm_get_size(terminal_.get(), &rows, &columns);
  return rows;
}

std::string Screen::row(int number) const {
  const VTermRect rect{.start_row = number, .end_row = number + 1, .start_col = 0, .end_col = columns()};
  std::string text(static_cast<std::size_t>(rect.end_col) * VTERM_MAX_CHARS_PER_CELL * 4, '\0');
  text.resize(::vterm_screen_get_text(screen_, text.data(), text.size(), rect));
  trimEnd(text);
  return text;
}

std::string Screen::visible() const {
  std::string text;
  for (int i = 0; i < rows(); ++i) text += row(i) + "\n";
  text.erase(text.find_last_not_of('\n') + 1);
  return text;
}

std::string Screen::recent(std::size_t lines) const {
  std::string text;
  for (const std::string& line : scrolled_) text += line + "\n";
  text += visible();
  std::size_t start = text.size();
  for (std::size_t i = 0; i < lines && start != std::string::npos && start > 0; ++i)
    start = text.rfind('\n', start - 1);
  return start == std::string::npos ? text : text.substr(start == 0 ? 0 : start + 1);
}

std::string Screen::repaint() const {
  std::string bytes = "\x1b[H\x1b[2J";
  for (int i = 0; i < rows(); ++i) bytes += fmt::format("\x1b[{};1H{}", i + 1, row(i));
  VTermPos cursor{};
  ::vterm_state_get_cursorpos(::vterm_obtain_state(terminal_.get()), &cursor);
  return bytes + fmt::format("\x1b[{};{}H", cursor.row + 1, cursor.col + 1);
}

}  // namespace ostrel::standin
