// The handle and the rail as a person meets them: what they show, and what the pointer on them brings.
#include <QToolTip>
#include <cmath>

#include "EdgeViewsFixture.h"

namespace ostrel {
namespace {

TEST_F(EdgeViewsTest, TheRailHasWhoWaitsFirstAndEachWithItsLight) {
  agents_.lights = {{"a", AgentLight::idle}, {"b", AgentLight::working}, {"c", AgentLight::needsYou}};
  RailBridge rail(parts());
  QQuickView view(&engine_, nullptr);
  open(view, "RailView", rail, desktop_.frames[EdgeWindow::rail]);
  QList<QQuickItem*> items;
  childrenNamed(view.rootObject(), QStringLiteral("railRow"), items);
  std::ranges::sort(items, {}, [](const QQuickItem* item) { return item->y(); });
  QStringList said;
  QList<int> lights;
  for (const QQuickItem* item : items) {
    said.append(item->property("label").toString());
    lights.append(item->property("light").toInt());
  }
  EXPECT_EQ(said, QStringList({QStringLiteral("Agent c, Needs you"), QStringLiteral("Agent b, Working"),
                               QStringLiteral("Agent a, Idle"), QStringLiteral("Show agents")}));
  EXPECT_EQ(lights.first(3), QList<int>({0, 1, 3}));
}

TEST_F(EdgeViewsTest, RailRowsCrossedOnTheWayShowOnlyTheOneThatIsReached) {
  for (const bool down : {true, false}) {
    desktop_.pointer = {1590, 450};
    edge_.pointerEnteredNotch();
    desktop_.report();
    loop_.runFor(300ms);
    ASSERT_TRUE(edge_.railRevealed());
    RailBridge rail(parts());
    QQuickView view(&engine_, nullptr);
    open(view, "RailView", rail, desktop_.frames[EdgeWindow::rail]);
    auto places = rows(view, "railRow");
    ASSERT_EQ(places.size(), 4u);
    const QPointF list = places.back();
    places.pop_back();
    if (!down) std::ranges::reverse(places);
    for (const QPointF place : places) {
      move(view, place);
      loop_.runFor(30ms);
    }
    EXPECT_EQ(opened_, "");
    loop_.runFor(60ms);
    EXPECT_EQ(opened_, down ? "c" : "a");
    opened_.clear();
    move(view, list);
    loop_.runFor(60ms);
    EXPECT_FALSE(*shown_.isPanelVisible);
    loop_.runFor(30ms);
    EXPECT_TRUE(*shown_.isPanelVisible);
    edge_.hidePanel();
    move(view, list);
    move(view, {1, 1});
    loop_.runFor(200ms);
    EXPECT_FALSE(*shown_.isPanelVisible) << "it left in time";
    desktop_.pointer = {300, 850};
    desktop_.report();
    loop_.runFor(1s);
  }
}

TEST_F(EdgeViewsTest, OfManyAgentsTheHandleShowsTheOneThatWaits) {
  for (int i = 0; i < 31; ++i) {
    const std::string pane = "d" + std::to_string(i);
    agents_.agents.push_back(agentOf(pane));
    agents_.lights[pane] = AgentLight::done;
  }
  agents_.lights["d30"] = AgentLight::needsYou;
  edge_.settingsChanged();
  NotchBridge notch(parts());
  QQuickView view(&engine_, nullptr);
  const Rect frame = desktop_.frames[EdgeWindow::notch];
  // Not on the screen: what pulses there is for one application in a process.
  view.setGeometry(0, 0, frame.width, frame.height);
  loadView(view, QStringLiteral("EdgeNotchView"), notch);
  ASSERT_EQ(notch.lights()->rows().size(), 5u);
  EXPECT_EQ(notch.lights()->rows()[0].light, static_cast<int>(AgentLight::needsYou));
  EXPECT_EQ(notch.lights()->rows()[1].light, static_cast<int>(AgentLight::done));
  EXPECT_EQ(texts(view, "notchMore"), QStringList{QStringLiteral("+29")});
  const auto more = rows(view, "notchMore");
  EXPECT_LE(more[0].y() + 8, frame.height) << "it stands inside";
  EXPECT_LE(more[0].x() + 11, frame.width);
}

// Of a colour, as it is seen: 0 is black, 1 white.
double luminance(QRgb colour) {
  const auto part = [](int value) {
    const double share = value / 255.0;
    return share <= 0.03928 ? share / 12.92 : std::pow((share + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * part(qRed(colour)) + 0.7152 * part(qGreen(colour)) + 0.0722 * part(qBlue(colour));
}
double contrast(QRgb one, QRgb other) {
  const auto [dark, light] = std::minmax(luminance(one), luminance(other));
  return (light + 0.05) / (dark + 0.05);
}

TEST_F(EdgeViewsTest, LightsOnTheHandleAreToldApartWithoutTheirColours) {
  using enum AgentLight;
  agents_.agents.push_back(agentOf("d"));
  agents_.lights = {{"a", done}, {"b", idle}, {"c", needsYou}, {"d", working}};
  edge_.settingsChanged();
  NotchBridge notch(parts());
  for (const bool dark : {false, true}) {
    appearance_.setDark(dark);
    for (const QColor backdrop : {Qt::black, Qt::white}) {
      QQuickView view(&engine_, nullptr);
      view.setColor(backdrop);
      open(view, "EdgeNotchView", notch, desktop_.frames[EdgeWindow::notch]);
      const QImage picture = view.grabWindow();
      const int middle = 12;  // of the lights' column
      const int first = picture.height() / 2 - 3 * edge::kNotchLightPitch / 2;
      std::vector<int> seen;  // pixels of each light that stand out, in its row and column
      for (int light = 0; light < 4; ++light) {
        const int y = first + light * edge::kNotchLightPitch;
        const QRgb surface = picture.pixel(3, y);
        int pixels = 0;
        for (int dx = -7; dx <= 7; ++dx) {
          for (int dy = -7; dy <= 7; ++dy)
            pixels += contrast(picture.pixel(middle + dx, y + dy), surface) >= 3 ? 1 : 0;
        }
        seen.push_back(pixels);
        const bool middleIsLit = contrast(picture.pixel(middle, y), surface) >= 3;
        EXPECT_EQ(middleIsLit, light == 3 || light == 2)
            << light << ": a mark and a ring have another middle";
      }
      EXPECT_GT(seen[0], 90) << "a large disc";
      EXPECT_GT(2 * seen[0], 3 * seen[1]) << "larger than all others";
      EXPECT_GT(seen[1], 2 * seen[3]);
      EXPECT_GT(seen[2], 10);
      EXPECT_GT(seen[3], 10);
      const int row = picture.height() / 2;
      EXPECT_GE(std::max(contrast(picture.pixel(0, row), backdrop.rgb()),
                         contrast(picture.pixel(1, row), backdrop.rgb())),
                3)
          << "the handle has an outline on whatever lies behind it";
    }
  }
}

TEST_F(EdgeViewsTest, OnlyLightsThatNeedThePersonMoveTwelveTimesASecondAndThenStand) {
  NotchBridge notch(parts());
  QQuickView view(&engine_, nullptr);
  open(view, "EdgeNotchView", notch, desktop_.frames[EdgeWindow::notch]);
  int frames = 0;
  QObject::connect(&view, &QQuickWindow::afterRendering, &view, [&] { ++frames; });
  const auto framesIn = [&](std::chrono::milliseconds span) {
    const auto end = std::chrono::steady_clock::now() + span;
    frames = 0;
    while (std::chrono::steady_clock::now() < end) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    return frames;
  };
  const auto light = [&](AgentLight light) {
    agents_.lights["b"] = light;
    agents_.changes.notify();
    framesIn(200ms);  // the change itself
  };
  light(AgentLight::working);
  EXPECT_EQ(framesIn(400ms), 0);
  light(AgentLight::needsYou);
  const int moved = framesIn(1s);
  EXPECT_GE(moved, 4);
  EXPECT_LE(moved, 13);
  loop_.runFor(Attention::kBreathes);
  framesIn(200ms);
  EXPECT_EQ(framesIn(400ms), 0) << "it still needs the person";
}

TEST_F(EdgeViewsTest, NothingRunsOverTheEdgeOfTheRail) {
  const char* const names[] = {"\u0645\u0634\u0631\u0648\u0639",
                               "\uFDFD",
                               "Donaudampfschifffahrt",
                               "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466",
                               "W\u0301\u0302\u0303\u0304\u0305\u0306",
                               "\u202Eevil",
                               "\u4E16\u754C"};
  agents_.agents.clear();
  for (const char* name : names) {
    HerdrAgent agent = agentOf(name, std::string("/work/") + name);
    agent.provider = name;
    agents_.lights[agent.paneID] = AgentLight::idle;
    agents_.agents.push_back(agent);
  }
  for (int i = 0; i < 1200; ++i) {
    agents_.agents.push_back(agentOf("x" + std::to_string(i)));
    agents_.lights[agents_.agents.back().paneID] = AgentLight::idle;
  }
  edge_.settingsChanged();
  appearance_.setReducedMotion(true);
  shown_.railExpanded.set(true);
  RailBridge rail(parts());
  NotchBridge notch(parts());
  QQuickView railView(&engine_, nullptr);
  open(railView, "RailView", rail, desktop_.frames[EdgeWindow::rail]);
  QQuickView notchView(&engine_, nullptr);
  open(notchView, "EdgeNotchView", notch, desktop_.frames[EdgeWindow::notch]);
  EXPECT_EQ(rows(railView, "railRow").size(), 13u) << "twelve agents and the list";
  EXPECT_TRUE(texts(railView, "railMark").contains(QStringLiteral("+1195")));
  QList<QQuickItem*> found;
  for (const char* name : {"railMark", "providerLetter"})
    childrenNamed(railView.rootObject(), QLatin1String(name), found);
  childrenNamed(notchView.rootObject(), QStringLiteral("notchMore"), found);
  ASSERT_GT(found.size(), 20);
  for (QQuickItem* text : found) {
    const bool inside = text->clip() || text->property("contentWidth").toReal() <= text->width();
    EXPECT_TRUE(inside) << text->property("text").toString().toStdString();
    EXPECT_GE(text->mapToScene({0, 0}).x(), 0);
    const int shadow = text->window() == &railView ? 4 : 0;
    EXPECT_LE(text->mapToScene({text->width(), 0}).x(), text->window()->width() - shadow);
  }
}

TEST_F(EdgeViewsTest, ATooltipSaysWhatARowIsUntilAPreviewDoes) {
  agents_.agents[0].title = "<b>Fix</b> the build";
  agents_.agents[0].provider = "codex";
  desktop_.pointer = {1590, 450};
  edge_.pointerEnteredNotch();
  desktop_.report();
  loop_.runFor(300ms);
  RailBridge rail(parts());
  const QString key = rail.items()->rows()[0].key;
  rail.hover(key, true);
  rail.rest(rail.items()->rows()[1].key, {1500, 400});
  EXPECT_EQ(QToolTip::text(), QString()) << "the pointer is elsewhere";
  rail.rest(key, {1500, 400});
  EXPECT_TRUE(QToolTip::text().contains(QStringLiteral("&lt;b&gt;Fix&lt;/b&gt; the build<br>Idle · Codex")))
      << QToolTip::text().toStdString();
  rail.hover(key, false);
  rail.hover(key, true);
  loop_.runFor(EdgeState::kPageDelay);
  EXPECT_EQ(opened_, "a");
  const auto end = std::chrono::steady_clock::now() + 10s;
  while (!QToolTip::text().isEmpty() && std::chrono::steady_clock::now() < end)
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
  rail.rest(key, {1500, 400});
  EXPECT_EQ(QToolTip::text(), QString()) << "it would cover the conversation";
}

}  // namespace
}  // namespace ostrel
