// Which agent the person has open, followed through every change of the inventory. Main thread only.
//
// The selection is an id. What is shown for it (conversation, output) belongs to its listener.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Agents/AgentList.h"
#include "Client/AgentInventory.h"
#include "Platform/Preferences.h"
#include "Runtime/Published.h"

namespace ostrel {

class AgentSelection {
 public:
  struct Sources {
    AgentInventory& inventory;
    const Published<std::vector<HerdrAgent>>& herdr;
    const Published<std::vector<HerdrAgent>>& codex;
    const Preferences& preferences;
  };
  // Told after the selection changed.
  class Listener {
   public:
    virtual void selected(const HerdrAgent& agent, bool markSeen) = 0;
    virtual void cleared() = 0;  // everything shown of it is to go
    // The selected agent, of which other sources than Herdr tell, may have said something new.
    virtual void refreshed(const HerdrAgent& agent) = 0;

   protected:
    ~Listener() = default;
  };
  // `listener` outlives the selection.
  AgentSelection(Sources sources, Listener& listener);

  const Published<std::optional<std::string>>& selectedID() const { return selectedID_; }
  const HerdrAgent* selected() const;  // as the inventory has it now; valid until the inventory changes

  // The record to show when the person opens `agent`: a Codex process is shown by its loaded thread.
  HerdrAgent opening(const HerdrAgent& agent) const;
  void select(const HerdrAgent& agent, bool markSeen);
  void clear();

  // After a source other than Herdr changed: clears a selection that has gone, selects it again when it is
  // back (its server was started again, say), and follows an agent whose record to show is another one now.
  void reconcile();
  // After a finished look at Herdr: the same, and selects afresh where another terminal has taken the pane.
  void herdrChanged();

 private:
  void lose();
  // Whether an agent is selected; if not, one that was lost may be selected now.
  bool takeUp();

  Sources sources_;
  Listener& listener_;
  Published<std::optional<std::string>> selectedID_;
  std::optional<std::string> lost_;  // what was selected until it went
  // The terminal of the selected pane when Herdr last told.
  std::optional<std::string> terminal_;
};

}  // namespace ostrel
