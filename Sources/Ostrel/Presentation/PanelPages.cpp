#include "PanelPages.h"

#include <algorithm>
#include <utility>

#include "ConnectionsBridge.h"
#include "SelectorBridge.h"
#include "UtilityPanel.h"

namespace ostrel {

std::vector<PanelPage> panelPages(const BridgeParts& parts, PageSources sources) {
  std::vector<PanelPage> pages;
  const auto row = [&](RailPage page, const char* title, const char* view, std::unique_ptr<QObject> bridge) {
    pages.push_back({page, QLatin1String(title), viewUrl(QLatin1String(view)), std::move(bridge)});
  };
  row(RailPage::agents, "Agents", "AgentSelectorPanel",
      std::make_unique<SelectorBridge>(parts, SelectorBridge::Sources{sources.loop, sources.requests}));
  row({PanelTab::connections}, "Connections", "ConnectionsPage",
      std::make_unique<ConnectionsBridge>(parts, sources.connections));
  return pages;
}

PanelBridge::PanelBridge(const InterfaceState& shown, std::vector<PanelPage> pages)
    : shown_(shown), pages_(std::move(pages)), page_(shown.page.observe([this] { Q_EMIT pageChanged(); })) {}

const PanelPage& PanelBridge::open() const {
  const auto found = std::ranges::find(pages_, *shown_.page, &PanelPage::page);
  return found == pages_.end() ? pages_.front() : *found;
}

}  // namespace ostrel
