#include "SampleAgents.h"

#include <algorithm>
#include <chrono>
#include <iterator>

namespace ostrel {

namespace {

struct Sample {
  const char* title;
  const char* provider;
  const char* folder;
  const char* host;
  AgentState state;
  AgentLight light;
  int minutes;  // in that state
};

constexpr Sample kSamples[] = {
    {"Migrate the billing tables", "claude", "/home/mira/code/ledger", "/usr/bin/konsole",
     AgentState::blocked, AgentLight::needsYou, 4},
    {"Fix flaky checkout test", "codex", "/home/mira/code/ledger", "/usr/bin/konsole", AgentState::working,
     AgentLight::working, 0},
    {"Explain the retry queue", "claude", "/home/mira/code/ledger", "", AgentState::idle, AgentLight::idle,
     190},
    {"Dark mode for the settings page", "claude", "/home/mira/code/storefront", "/usr/bin/kitty",
     AgentState::working, AgentLight::working, 12},
    {"Upgrade the bundler", "gemini", "/home/mira/code/storefront", "/usr/bin/kitty", AgentState::done,
     AgentLight::done, 26},
    {"Draft the release notes", "codex", "/home/mira/notes", "/usr/bin/gnome-terminal", AgentState::done,
     AgentLight::done, 75},
    {"Sort the photo archive", "aider", "/home/mira/notes", "/usr/bin/gnome-terminal", AgentState::idle,
     AgentLight::idle, 4400},
};

}  // namespace

SampleAgents::SampleAgents(std::size_t count) {
  std::int64_t pid = 4100;
  const WallTime now = std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());
  while (agents_.size() < count) {
    const Sample& sample = kSamples[agents_.size() % std::size(kSamples)];
    const std::size_t round = agents_.size() / std::size(kSamples);
    const std::string number = round > 0 ? " " + std::to_string(round + 1) : "";
    HerdrAgent agent;
    agent.externalProcess = ExternalProcess{.pid = pid,
                                            .parent = pid - 1,
                                            .started = "Sun Nov 22 21:51:10 2026",
                                            .executable = sample.provider,
                                            .tty = "pts/" + std::to_string(agents_.size()),
                                            .hostApp = {},
                                            .uid = 1000};
    if (*sample.host) agent.externalProcess->hostApp = sample.host;
    agent.session = "external";
    agent.paneID = std::to_string(pid);
    agent.title = sample.title + number;
    agent.provider = sample.provider;
    agent.state = sample.state;
    agent.since = now - std::chrono::minutes(sample.minutes);
    agent.context = sample.folder + number;
    list_.agents.push_back({std::make_shared<ListedAgent>(agent), sample.light});
    agents_.push_back(std::move(agent));
    pid += 37;
  }
  list_.complete = true;
}

AgentLight SampleAgents::light(const HerdrAgent& agent) const {
  const auto found = std::ranges::find(list_.agents, agent.id(), &LitAgent::id);
  return found == list_.agents.end() ? AgentLight::idle : found->light;
}

HerdrAgent SampleAgents::pane() {
  HerdrAgent agent;
  agent.session = "main";
  agent.paneID = "p4";
  agent.terminalID = "t4";
  agent.title = "Upgrade the bundler";
  agent.provider = "gemini";
  agent.state = AgentState::working;
  agent.context = "/home/mira/code/storefront";
  return agent;
}

}  // namespace ostrel
