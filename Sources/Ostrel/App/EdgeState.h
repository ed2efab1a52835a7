// The state of the windows at the edge of the screen: what the pointer, clicks and menus make of them, and
// when. Main thread only. The desktop reports what happens and does what the ports say; every decision is
// made here.
//
// The pointer in the handle brings the rail out; the pointer on a button of the rail opens a page as a
// preview; the pointer on an agent of a page opens its conversation as another. Previews go by themselves
// when the pointer leaves; a click turns them into windows that stay. At rest nothing runs: the pointer is
// followed only while it can change something.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "App/Attention.h"
#include "App/EdgeGeometry.h"
#include "App/InterfaceState.h"
#include "App/OstrelModel.h"
#include "Platform/EdgeWindows.h"
#include "Platform/Pointer.h"
#include "Platform/Preferences.h"
#include "Platform/Screens.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

// The keys that mean something to the panel as such.
enum class PanelKey { up, down, open, close };

class EdgeState {
 public:
  // Long enough that a pointer on its way past the handle brings nothing out ...
  static constexpr Duration kNotchDelay = std::chrono::milliseconds(60);
  // ... or past a button or an agent opens nothing; short enough to feel like an answer.
  static constexpr Duration kPageDelay = std::chrono::milliseconds(90);
  static constexpr Duration kAgentDelay = std::chrono::milliseconds(60);
  // How long the pointer may be away before what it opened goes.
  static constexpr Duration kDeparture = std::chrono::milliseconds(300);
  // A pointer that is on the rail so soon after a menu went has been left there by the menu.
  static constexpr Duration kMenuLeaves = std::chrono::milliseconds(500);
  // A click on something else that opens the list: pressed, it has closed the panel, and comes to us when it
  // is released.
  static constexpr Duration kClickTells = std::chrono::milliseconds(500);
  // Lengths of motions; all of them are none with reduced motion, unlike the delays above.
  static constexpr Duration kNotchLeaves = std::chrono::milliseconds(240);
  static constexpr Duration kRailLeaves = std::chrono::milliseconds(140);
  static constexpr Duration kPanelComes = std::chrono::milliseconds(160);
  static constexpr Duration kPanelLeaves = std::chrono::milliseconds(100);
  static constexpr int kPanelSlide = 14;  // points

  struct Ports {
    MainLoop& loop;
    EdgeWindows& windows;
    const Screens& screens;
    Pointer& pointer;
    const Preferences& preferences;
  };
  // What the conversation window shows.
  struct Conversation {
    // Shows the agent; with `markSeen` the person counts as having seen it.
    std::function<void(const HerdrAgent& agent, bool markSeen)> select;
    // Ends the refreshing of what is shown.
    std::function<void()> stopOutput;
  };
  // `shown` is written by this object alone. Both it and the model outlive it.
  EdgeState(Ports ports, OstrelModel& model, InterfaceState& shown, Conversation conversation);
  EdgeState(const EdgeState&) = delete;
  EdgeState& operator=(const EdgeState&) = delete;
  ~EdgeState();

  // Places the windows and shows the handle.
  void start();

  // What the desktop reports.
  void pointerEnteredNotch();
  void keyWindowChanged();
  void clicked(Point place);  // a button of the mouse went down, anywhere
  void screensChanged();
  void menuOpened();  // of the program's own: keeps everything open
  void menuClosed();
  void settingsChanged();

  // What the views ask for.
  void hoverPage(std::optional<RailPage> page);  // the pointer is on that button, or on none
  // The same of a row of the rail that stands for one agent: previews its conversation.
  void hoverRailAgent(const HerdrAgent& agent, bool inside);
  void leaveRail();              // the pointer is on the rail no longer
  void hoverPill(bool inside);   // the pill of further pages, open or not
  void openPage(RailPage page);  // a click on it; on the page that stays open: closes it
  void togglePanel();            // the agent list, or nothing
  void statusItemClicked();      // the same, for a click that has closed the panel before
  void presentPanel();           // whatever is hidden: the person looks for it
  void hoverAgent(const HerdrAgent& agent, bool inside);
  void openAgent(const HerdrAgent& agent);
  void closeAgent();
  // The conversation window's size; kept within reason and the screen.
  void resizeAgent(Size size);
  Size agentSize() const { return agentSize_; }
  // So many points the window is higher while something is asked in it, within the screen; its own size
  // stays.
  void setAgentRoom(int height);
  // Shows the agent that the list has below or above the open one, or the next that needs the person, round
  // and round. Nothing where there is no other.
  void openNextAgent(bool down);
  void openNextWaiting();
  void hoverList(bool inside);  // the rows must not move below the pointer
  // A key in the panel; false when it meant nothing there, and may mean something to a field.
  bool keyPressed(PanelKey key);
  void hidePanel();                // the sheet for a new agent keeps it open
  void showNewSession(bool open);  // that sheet came or went
  void toggleVisibility();
  // Takes the edge away for that long. Not remembered: a new launch shows it.
  void hideFor(Duration time);
  void offerUpdate(bool offered);

  // What the views show of all this.
  const InterfaceState& shown() const { return shown_; }
  bool visible() const { return edge_ != Edge::hidden; }
  bool railRevealed() const { return edge_ == Edge::rail; }
  // The conversation of the agent with that id is on the screen.
  bool showsAgent(std::string_view id) const {
    return live_ != Presence::closed && liveAgent_ && liveAgent_->id() == id;
  }
  // Present counts, for the views that lay out the rail.
  edge::Counts counts() const;

 private:
  // What stands at the edge of the screen.
  enum class Edge { hidden, handle, rail };
  // The panel and the conversation window, each for itself. A preview goes with the pointer.
  enum class Presence { closed, preview, open };
  // The program's own menu. Where one has gone it may have left the pointer on the rail: what the pointer is
  // on there then means nothing until it has left the rail.
  enum class Menu { none, open, leftPointer };

  void update();
  void reconsider();
  void track();
  void stopTracking();
  bool needsPointer() const;
  bool passed(std::optional<TimePoint>& since, Duration span);
  bool isOver(EdgeWindow window, int dx, int dy) const;
  bool isOverRail() const;
  bool isOverPanel() const;
  bool isMenuInTheWay();
  void leaveRailAgent();
  void followLivePreview();
  void followNotch();
  void followRail();

  void setEdge(Edge edge);
  void moveRail();
  void turnTo(RailPage page);
  bool setPanel(Presence presence);
  void revealPanel(Presence presence);
  void keepPanel();
  void openLive(const HerdrAgent& agent, Presence presence);
  void closeLive();

  void delivered();
  void layout();
  void positionAgentWindow();
  void place(EdgeWindow window, const Rect& frame);
  std::optional<Rect>& frame(EdgeWindow window) { return frames_[static_cast<std::size_t>(window)]; }
  const std::optional<Rect>& frame(EdgeWindow window) const {
    return frames_[static_cast<std::size_t>(window)];
  }
  Duration motion(Duration length) const;

  Ports ports_;
  OstrelModel& model_;
  InterfaceState& shown_;
  Conversation conversation_;
  Attention attention_;
  std::array<std::optional<Rect>, 4> frames_;  // by window, as placed
  Size agentSize_ = edge::kAgentWindowSize;
  int agentRoom_ = 0;
  bool besidePanel_ = false;  // where the conversation stands; without a panel beside the rail
  bool updateOffered_ = false;

  Edge edge_ = Edge::handle;
  Presence panel_ = Presence::closed;
  Presence live_ = Presence::closed;     // the conversation window
  std::optional<HerdrAgent> liveAgent_;  // what it shows
  Menu menu_ = Menu::none;
  std::optional<TimePoint> menuClosed_;
  std::optional<TimePoint> clickedAway_;  // when a click elsewhere closed the panel
  std::optional<TimePoint> hoverStarted_;
  std::optional<TimePoint> departureStarted_;
  std::optional<TimePoint> liveDeparture_;

  std::optional<Point> pointer_;       // while it is followed
  std::optional<TimePoint> nextLook_;  // when a delay that runs now will be over
  Registration following_;
  Timer lookTimer_;
  Timer turnTimer_;    // starts the rail's and the handle's motions
  Timer settleTimer_;  // takes the one that left off the screen
  Timer pageTimer_;
  Timer pillTimer_;
  Timer agentTimer_;
  std::optional<std::string> hoveredAgent_;  // the id of the one below the pointer
  bool onRailAgent_ = false;                 // its row is one of the rail
  Timer panelOutTimer_;
  Timer unhideTimer_;
};

}  // namespace ostrel
