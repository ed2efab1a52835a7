// A made-up conversation beside the made-up agents of `SampleAgents`. Main thread only.
#pragma once

#include "Agents/HerdrAgent.h"
#include "Client/SelectedConversation.h"

namespace ostrel::samples {

// What `agent` would show: a conversation with a bit of everything, or for a pane its terminal too.
void converse(SelectedConversation& shown, const HerdrAgent& agent);

}  // namespace ostrel::samples
