#include "Client/SourceReports.h"

#include <algorithm>

#include "Codex/CodexLocalServer.h"

namespace ostrel {

namespace {

std::vector<std::string> problemsIn(const SourceReport& report) {
  std::vector<std::string> problems;
  const auto add = [&](const std::optional<std::string>& words) {
    if (words && !words->empty() && std::ranges::find(problems, *words) == problems.end())
      problems.push_back(*words);
  };
  add(report.scan);
  add(report.herdr);
  // That no server of Codex runs is how it mostly is, and hides nobody: its agents are found as processes.
  for (const auto& words : {report.codex, report.codexRequests}) {
    if (words && !words->ends_with(CodexLocalServer::kUnavailable)) add(words);
  }
  if (report.promptsElsewhere)
    add("Claude Code's prompts go to another program of Ostrel that runs (ostrelctl serve, perhaps). They "
        "come here once it has ended.");
  if (report.hook) add(report.hook->problem);
  return problems;
}

}  // namespace

SourceReports::SourceReports(Sources sources) : sources_(sources) {
  const auto follow = [this](auto&... values) {
    (subscriptions_.push_back(values.observe([this] { report_.set(now()); })), ...);
  };
  const auto& [local, link, managed, codex, requests, permissions, hook] = sources_;
  follow(local.error(), local.scans(), link.active(), link.connecting(), link.connected(), link.error(),
         link.sessionCount(), managed.starting(), requests.connectedThreads(), requests.error(),
         permissions.taken());
  if (codex) follow(codex->error(), codex->passes());
  if (hook) follow(hook->state());
  report_.set(now());
}

bool SourceReports::complete() const {
  return *sources_.local.scans() > 0 && !*sources_.link.connecting() && !*sources_.managed.starting() &&
         (!sources_.codex || *sources_.codex->passes() > 0);
}

SourceReport SourceReports::now() const {
  const auto& [local, link, managed, codex, requests, permissions, hook] = sources_;
  SourceReport report{.scanned = *local.scans() > 0,
                      .complete = complete(),
                      .scan = *local.error(),
                      .herdrWanted = *link.active(),
                      .herdrStatus = link.status(),
                      .herdr = *link.error(),
                      .codex = codex ? *codex->error() : std::nullopt,
                      .codexRequests = *requests.error(),
                      .codexThreads = *requests.connectedThreads(),
                      .promptsElsewhere = *permissions.taken()};
  if (hook) report.hook = *hook->state();
  report.problems = problemsIn(report);
  return report;
}

}  // namespace ostrel
