// What a pane shows: an xterm's screen without a display. Main thread only.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

struct VTerm;
struct VTermScreen;

namespace ostrel::standin {

class Screen {
 public:
  using Reply = std::function<void(std::string_view)>;

  // `reply` gets what a terminal sends to its program: keys, and answers to the program's questions.
  Screen(int columns, int rows, Reply reply);
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  void feed(std::string_view bytes);
  // The title that the program set last.
  const std::string& title() const { return title_; }

  // The rows without the blanks at their ends and without the empty ones at the bottom.
  std::string visible() const;
  // The same with what has scrolled away in front, the last `lines` of it.
  std::string recent(std::size_t lines) const;
  // Bytes that make another screen of this size show the same text and cursor.
  std::string repaint() const;

 private:
  int columns() const;
  int rows() const;
  struct Callbacks;
  struct Free {
    void operator()(VTerm* terminal) const;
  };
  std::string row(int number) const;

  Reply reply_;
  std::unique_ptr<VTerm, Free> terminal_;
  VTermScreen* screen_;
  std::deque<std::string> scrolled_;
  std::string title_;
};

}  // namespace ostrel::standin
