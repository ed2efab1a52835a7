#include "X11Input.h"

#include <cstdlib>
#include <utility>
#include <xcb/xcb.h>
#include <xcb/xinput.h>

#include "Runtime/Failure.h"

namespace ostrel {

namespace {

template <class T>
using Reply = std::unique_ptr<T, decltype(&std::free)>;

template <class T>
Reply<T> owned(T* reply) {
  return Reply<T>(reply, std::free);
}

constexpr std::uint32_t kLeftControl = 0xffe3;
constexpr std::uint32_t kRightControl = 0xffe4;
constexpr std::uint32_t kFirstModifier =
    0xffe1;  // the keysyms of Shift, Control, Caps, Meta, Alt, Super, Hyper
constexpr std::uint32_t kLastModifier = 0xffee;
constexpr std::uint32_t kLevel3 = 0xfe03;

}  // namespace

bool ModifierTracker::pressed(Key key, unsigned code) {
  switch (key) {
    case Key::control:
      controls_.insert(code);
      break;
    case Key::modifier:
      modifiers_.insert(code);
      break;
    case Key::other:
      return spoiled();
  }
  return settle();
}

bool ModifierTracker::released(unsigned code) {
  controls_.erase(code);
  modifiers_.erase(code);
  return settle();
}

bool ModifierTracker::spoiled() {
  spoiled_ = !controls_.empty() || !modifiers_.empty();
  return std::exchange(state_, ModifierState::other) != ModifierState::other;
}

bool ModifierTracker::settle() {
  const bool held = !controls_.empty() || !modifiers_.empty();
  if (!held) spoiled_ = false;
  // Once another key was in it, it is no Control by itself until all are up.
  if (!modifiers_.empty()) spoiled_ = true;
  const ModifierState now = !held      ? ModifierState::none
                            : spoiled_ ? ModifierState::other
                                       : ModifierState::controlAlone;
  return std::exchange(state_, now) != now;
}

X11Input::X11Input(Ports ports)
    : ports_(std::move(ports)), connection_(xcb_connect(nullptr, nullptr), xcb_disconnect) {
  xcb_connection_t* const c = connection_.get();
  if (xcb_connection_has_error(c)) throw Failure("the display can't be reached a second time");
  const auto* const extension = xcb_get_extension_data(c, &xcb_input_id);
  // From 2.1 on raw events come while another program has grabbed the pointer.
  const auto version =
      owned(xcb_input_xi_query_version_reply(c, xcb_input_xi_query_version(c, 2, 2), nullptr));
  if (!extension || !extension->present || !version ||
      std::pair(version->major_version, version->minor_version) <
          std::pair<std::uint16_t, std::uint16_t>(2, 1))
    throw Failure("the display server does not report clicks and keys");
  opcode_ = extension->major_opcode;
  root_ = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
  watch_ = ports_.loop.watch(xcb_get_file_descriptor(c), {.read = true}, [this](Interest) { read(); });
}

X11Input::~X11Input() { watch_.reset(); }

Registration X11Input::follow(Moved moved) {
  moved_ = std::make_shared<Moved>(std::move(moved));
  last_.reset();
  select();
  lookTimer_ = ports_.loop.after({}, [this] { look(); });
  return Registration([this] {
    moved_.reset();
    lookTimer_.reset();
    select();
  });
}

Registration X11Input::observe(Changed changed) {
  changed_ = std::make_shared<Changed>(std::move(changed));
  tracker_ = {};
  readKeys();
  select();
  return Registration([this] {
    changed_.reset();
    select();
  });
}

Registration X11Input::observeClicks(std::function<void(Point)> clicked) {
  clicked_ = std::move(clicked);
  select();
  return Registration([this] {
    clicked_ = {};
    select();
  });
}

// Events that nobody waits for would wake the program for nothing.
void X11Input::select() {
  unsigned mask = 0;
  if (moved_) mask |= XCB_INPUT_XI_EVENT_MASK_RAW_MOTION;
  if (clicked_ || changed_) mask |= XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS;
  if (changed_) mask |= XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE;
  if (std::exchange(selected_, mask) == mask) return;
  struct {
    xcb_input_event_mask_t head;
    std::uint32_t mask;
  } request{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, mask};
  xcb_input_xi_select_events(connection_.get(), root_, 1, &request.head);
  xcb_flush(connection_.get());
  // Whatever xcb has read on the way waits in its own queue, of which the descriptor does not tell.
  readTimer_ = ports_.loop.after({}, [this] { read(); });
}

void X11Input::read() {
  while (const auto event = owned(xcb_poll_for_event(connection_.get()))) {
    const int type = event->response_type & 0x7f;
    if (type == XCB_MAPPING_NOTIFY) readKeys();
    if (type == XCB_GE_GENERIC) handle(*reinterpret_cast<const xcb_ge_generic_event_t*>(event.get()));
  }
  // The end of the display ends the program by Qt's own connection; until then this one must not spin.
  if (xcb_connection_has_error(connection_.get())) watch_.reset();
}

void X11Input::handle(const xcb_ge_generic_event_t& event) {
  if (event.extension != opcode_) return;
  // Presses, releases and buttons share their beginning.
  const auto& key = reinterpret_cast<const xcb_input_raw_key_press_event_t&>(event);
  switch (event.event_type) {
    case XCB_INPUT_RAW_MOTION:
      moved();
      return;
    case XCB_INPUT_RAW_BUTTON_PRESS:
      if (changed_) changed(tracker_.spoiled());
      // 4 to 7 are the wheel's. A copy: the click may end the observation.
      if (const auto clicked = clicked_; clicked && (key.detail < 4 || key.detail > 7))
        clicked(ports_.pointer());
      return;
    case XCB_INPUT_RAW_KEY_PRESS:
      if ((key.flags & XCB_INPUT_KEY_EVENT_FLAGS_KEY_REPEAT) != 0) return;
      changed(tracker_.pressed(controls_.contains(key.detail)    ? ModifierTracker::Key::control
                               : modifiers_.contains(key.detail) ? ModifierTracker::Key::modifier
                                                                 : ModifierTracker::Key::other,
                               key.detail));
      return;
    case XCB_INPUT_RAW_KEY_RELEASE:
      changed(tracker_.released(key.detail));
      return;
    default:
      return;
  }
}

void X11Input::changed(bool is) {
  if (!is) return;
  if (const auto keep = changed_) (*keep)(tracker_.state());
}

void X11Input::readKeys() {
  controls_.clear();
  modifiers_.clear();
  xcb_connection_t* const c = connection_.get();
  const xcb_setup_t* const setup = xcb_get_setup(c);
  const auto count = static_cast<std::uint8_t>(setup->max_keycode - setup->min_keycode + 1);
  const auto map = owned(
      xcb_get_keyboard_mapping_reply(c, xcb_get_keyboard_mapping(c, setup->min_keycode, count), nullptr));
  if (!map) return;
  const xcb_keysym_t* const symbols = xcb_get_keyboard_mapping_keysyms(map.get());
  for (unsigned i = 0; i < count; ++i) {
    const xcb_keysym_t symbol = symbols[i * map->keysyms_per_keycode];
    const unsigned code = setup->min_keycode + i;
    if (symbol == kLeftControl || symbol == kRightControl) {
      controls_.insert(code);
    } else if ((symbol >= kFirstModifier && symbol <= kLastModifier) || symbol == kLevel3) {
      modifiers_.insert(code);
    }
  }
}

void X11Input::moved() {
  if (!moved_ || lookTimer_) return;
  lookTimer_ = ports_.loop.after(nextLook_ - ports_.loop.now(), [this] { look(); });
}

void X11Input::look() {
  lookTimer_.reset();
  nextLook_ = ports_.loop.now() + kFrame;
  const Point place = ports_.pointer();
  if (ports_.wayland) lookTimer_ = ports_.loop.after(kFrame, [this] { look(); });
  if (std::exchange(last_, place) == place) return;
  if (const auto keep = moved_) (*keep)(place);
}

}  // namespace ostrel
