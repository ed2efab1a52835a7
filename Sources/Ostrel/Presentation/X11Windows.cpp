#include "X11Windows.h"

#include <QGuiApplication>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <xcb/shape.h>
#include <xcb/xcb.h>

namespace ostrel::x11 {

namespace {

template <class T>
using Reply = std::unique_ptr<T, decltype(&std::free)>;

constexpr std::uint32_t kAllDesktops = 0xffffffff;

xcb_connection_t* connection() {
  auto* const application = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
  return application ? application->connection() : nullptr;
}

xcb_window_t root(xcb_connection_t* c) { return xcb_setup_roots_iterator(xcb_get_setup(c)).data->root; }

xcb_atom_t atom(xcb_connection_t* c, const char* name) {
  const auto cookie = xcb_intern_atom(c, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
  const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(c, cookie, nullptr), std::free);
  return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

std::vector<xcb_atom_t> states(xcb_connection_t* c) {
  return {atom(c, "_NET_WM_STATE_ABOVE"), atom(c, "_NET_WM_STATE_STICKY"),
          atom(c, "_NET_WM_STATE_SKIP_TASKBAR"), atom(c, "_NET_WM_STATE_SKIP_PAGER")};
}

void send(xcb_connection_t* c, xcb_window_t window, const char* type, std::uint32_t first,
          std::uint32_t second, std::uint32_t third) {
  xcb_client_message_event_t event{};
  event.response_type = XCB_CLIENT_MESSAGE;
  event.format = 32;
  event.window = window;
  event.type = atom(c, type);
  event.data.data32[0] = first;
  event.data.data32[1] = second;
  event.data.data32[2] = third;
  event.data.data32[3] = 1;  // from an application
  xcb_send_event(c, 0, root(c), XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                 reinterpret_cast<const char*>(&event));
}

constexpr std::uint32_t kMostWords = 4096;  // of a property, each of 32 bits

QByteArray property(xcb_connection_t* c, xcb_window_t window, const char* name) {
  const auto cookie = xcb_get_property(c, 0, window, atom(c, name), XCB_ATOM_ANY, 0, kMostWords);
  const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(c, cookie, nullptr), std::free);
  if (!reply) return {};
  return {static_cast<const char*>(xcb_get_property_value(reply.get())),
          xcb_get_property_value_length(reply.get())};
}

std::vector<std::uint32_t> numbers(xcb_connection_t* c, xcb_window_t window, const char* name) {
  const QByteArray bytes = property(c, window, name);
  std::vector<std::uint32_t> values(static_cast<std::size_t>(bytes.size()) / sizeof(std::uint32_t));
  if (!values.empty()) std::memcpy(values.data(), bytes.constData(), values.size() * sizeof values[0]);
  return values;
}

// KWin hides utility windows of a group whose program is not active, but for those alone in their group.
void standAlone(xcb_connection_t* c, xcb_window_t window) {
  constexpr std::uint32_t kGroupIsSet = 1u << 6;
  struct {
    std::uint32_t flags, input, state, iconPixmap, iconWindow, iconX, iconY, iconMask, group;
  } hints{};
  const QByteArray found = property(c, window, "WM_HINTS");
  std::memcpy(&hints, found.constData(), std::min(static_cast<std::size_t>(found.size()), sizeof hints));
  hints.flags |= kGroupIsSet;
  hints.group = window;
  xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_HINTS, XCB_ATOM_WM_HINTS, 32,
                      sizeof hints / sizeof hints.flags, &hints);
}

}  // namespace

bool reachable(const QByteArray& display) {
  xcb_connection_t* const c = xcb_connect(display.constData(), nullptr);
  const bool answers = xcb_connection_has_error(c) == 0;
  xcb_disconnect(c);
  return answers;
}

void prepare(const QWindow& window) {
  xcb_connection_t* const c = connection();
  if (!c) return;
  const auto id = static_cast<xcb_window_t>(window.winId());
  const auto wanted = states(c);
  xcb_change_property(c, XCB_PROP_MODE_APPEND, id, atom(c, "_NET_WM_STATE"), XCB_ATOM_ATOM, 32,
                      static_cast<std::uint32_t>(wanted.size()), wanted.data());
  xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, atom(c, "_NET_WM_DESKTOP"), XCB_ATOM_CARDINAL, 32, 1,
                      &kAllDesktops);
  standAlone(c, id);
}

void announce(const QWindow& window) {
  xcb_connection_t* const c = connection();
  if (!c) return;
  const auto id = static_cast<xcb_window_t>(window.winId());
  constexpr std::uint32_t kAdd = 1;
  const auto wanted = states(c);
  for (std::size_t i = 0; i + 1 < wanted.size(); i += 2)
    send(c, id, "_NET_WM_STATE", kAdd, wanted[i], wanted[i + 1]);
  send(c, id, "_NET_WM_DESKTOP", kAllDesktops, 2, 0);
  xcb_flush(c);
}

void setInput(const QWindow& window, const std::vector<QRect>& parts) {
  xcb_connection_t* const c = connection();
  if (!c) return;
  const qreal scale = window.devicePixelRatio();
  std::vector<xcb_rectangle_t> rectangles;
  for (const QRect& part : parts) {
    const auto pixels = [scale](int points) { return static_cast<int>(std::lround(points * scale)); };
    rectangles.push_back({static_cast<std::int16_t>(pixels(part.x())),
                          static_cast<std::int16_t>(pixels(part.y())),
                          static_cast<std::uint16_t>(pixels(part.width())),
                          static_cast<std::uint16_t>(pixels(part.height()))});
  }
  xcb_shape_rectangles(c, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED,
                       static_cast<xcb_window_t>(window.winId()), 0, 0,
                       static_cast<std::uint32_t>(rectangles.size()), rectangles.data());
  xcb_flush(c);
}

std::vector<ClientWindow> clientWindows() {
  xcb_connection_t* const c = connection();
  if (!c) return {};
  std::vector<std::uint32_t> ids = numbers(c, root(c), "_NET_CLIENT_LIST_STACKING");
  if (ids.empty()) ids = numbers(c, root(c), "_NET_CLIENT_LIST");
  std::vector<ClientWindow> windows;
  for (const std::uint32_t id : ids) {
    const auto pid = numbers(c, id, "_NET_WM_PID");
    windows.push_back({id, pid.empty() ? 0 : pid.front()});
  }
  return windows;
}

void activate(std::uint32_t window) {
  xcb_connection_t* const c = connection();
  if (!c) return;
  // As a task bar does: from a mere application a window manager need not take it.
  constexpr std::uint32_t kTaskBar = 2;
  send(c, window, "_NET_ACTIVE_WINDOW", kTaskBar, XCB_CURRENT_TIME, XCB_WINDOW_NONE);
  xcb_flush(c);
}

std::vector<Strut> struts() {
  xcb_connection_t* const c = connection();
  if (!c) return {};
  std::vector<Strut> all;
  for (const std::uint32_t window : numbers(c, root(c), "_NET_CLIENT_LIST")) {
    auto words = numbers(c, window, "_NET_WM_STRUT_PARTIAL");
    if (words.empty()) words = numbers(c, window, "_NET_WM_STRUT");
    for (const Strut& strut : strutsOf(words)) all.push_back(strut);
  }
  return all;
}

std::vector<Rect> workAreas() {
  xcb_connection_t* const c = connection();
  if (!c) return {};
  const auto desktop = numbers(c, root(c), "_NET_CURRENT_DESKTOP");
  const std::size_t current = desktop.empty() ? 0 : desktop.front();
  std::vector<Rect> all;
  const auto add = [&](const std::vector<std::uint32_t>& words, std::size_t at) {
    const auto word = [&](std::size_t i) { return static_cast<int>(words[at + i]); };
    all.push_back({word(0), word(1), word(2), word(3)});
  };
  const auto monitors = numbers(c, root(c), ("_GTK_WORKAREAS_D" + std::to_string(current)).c_str());
  for (std::size_t at = 0; at + 4 <= monitors.size(); at += 4) add(monitors, at);
  const auto whole = numbers(c, root(c), "_NET_WORKAREA");
  if (all.empty() && whole.size() >= 4) add(whole, whole.size() >= 4 * current + 4 ? 4 * current : 0);
  return all;
}

Size desktopSize() {
  xcb_connection_t* const c = connection();
  if (!c) return {};
  // The connection's own word is that of its beginning.
  const Reply<xcb_get_geometry_reply_t> reply(
      xcb_get_geometry_reply(c, xcb_get_geometry(c, root(c)), nullptr), std::free);
  return reply ? Size{reply->width, reply->height} : Size{};
}

bool changesAreas(const void* event) {
  const auto* const generic = static_cast<const xcb_generic_event_t*>(event);
  if ((generic->response_type & 0x7f) != XCB_PROPERTY_NOTIFY) return false;
  xcb_connection_t* const c = connection();
  const auto* const change = reinterpret_cast<const xcb_property_notify_event_t*>(generic);
  if (!c || change->window != root(c)) return false;
  static const std::vector<xcb_atom_t> atoms = {atom(c, "_NET_WORKAREA"), atom(c, "_NET_CLIENT_LIST"),
                                                atom(c, "_GTK_WORKAREAS_D0")};
  return std::ranges::find(atoms, change->atom) != atoms.end();
}

bool composited() {
  xcb_connection_t* const c = connection();
  if (!c) return false;
  const auto cookie = xcb_get_selection_owner(c, atom(c, "_NET_WM_CM_S0"));
  const Reply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(c, cookie, nullptr),
                                                     std::free);
  return reply && reply->owner != XCB_WINDOW_NONE;
}

QByteArray windowManager() {
  xcb_connection_t* const c = connection();
  if (!c) return {};
  const QByteArray check = property(c, root(c), "_NET_SUPPORTING_WM_CHECK");
  xcb_window_t window = XCB_WINDOW_NONE;
  if (check.size() < static_cast<qsizetype>(sizeof window)) return {};
  std::memcpy(&window, check.constData(), sizeof window);
  return property(c, window, "_NET_WM_NAME");
}

void flush() {
  if (xcb_connection_t* const c = connection()) xcb_flush(c);
}

}  // namespace ostrel::x11
