#include "ListProgram.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "Platform/PreferenceKeys.h"

namespace ostrel::console {

namespace {

constexpr Duration kForever = std::chrono::hours(24 * 365);

// Looks at files: background work.
std::string render(Listing list, const Options& options, bool columns, AgentTranscript& transcripts) {
  if (!options.json) {
    // `watch` ends each list with an empty line.
    return asText(list, columns) + (options.command == Options::Command::watch ? "\n" : "");
  }
  const auto find = [&transcripts](ShownAgent& shown) {
    const HerdrAgent& agent = shown.agent;
    if (!agent.transcriptReference) return;
    try {
      shown.transcript =
          transcripts.resolve(agent.transcriptReference, agent.transcriptKind, agent.provider).string();
    } catch (const Failure&) {
      // A conversation that has no file yet.
    }
  };
  std::ranges::for_each(list.agents, find);
  std::ranges::for_each(list.loadedCodex, find);
  return asJson(list);
}

}  // namespace

ListProgram::ListProgram(Parts parts, Options options, Output output)
    : parts_(parts), options_(options), output_(std::move(output)), tasks_(parts.loop) {}

void ListProgram::start() {
  HerdrClient& client = parts_.client;
  deliveries_ = client.agents().observe([this] { changed_.raise(); });
  reports_ = client.report().observe([this] {
    // One list is wanted as soon as it is whole; a list that is kept shown is not to flicker.
    if (options_.command == Options::Command::agents && parts_.client.report()->complete)
      parts_.client.agents().deliver();
    changed_.raise();
  });
  if (options_.command == Options::Command::agents) {
    deadline_ = parts_.loop.after(options_.wait, [this] {
      const std::chrono::duration<double> seconds = options_.wait;
      if (parts_.client.report()->scanned) {
        output_.complain(fmt::format("Herdr or Codex took longer than {:g} seconds.", seconds.count()));
        late_ = true;
        parts_.client.agents().deliver();
        return;
      }
      output_.complain(fmt::format("The first scan took longer than {:g} seconds.", seconds.count()));
      finish(1);
    });
  }
  tasks_.start(run());
  client.startDiscovery();
  const bool left = parts_.preferences.object(preferenceKeys::kHerdrReconnect) == Json(false);
  if (!left) client.herdr().connectWhereInstalled();
}

bool ListProgram::ready() {
  // As it was delivered: the report may be ahead of the list.
  return late_ || parts_.client.agents().list().complete;
}

Task<void> ListProgram::run() {
  const bool once = options_.command == Options::Command::agents;
  std::optional<std::string> shown;
  std::optional<std::string> shownError;
  std::optional<std::string> shownHerdrError;
  for (;;) {
    co_await changed_.waitFor(kForever);
    if (!ready()) continue;
    Listing list = current();
    const std::optional<std::string> error = list.error;
    const std::optional<std::string> herdrError = list.herdrError;
    // By value: the job may outlive this program's objects.
    std::string text =
        co_await parts_.pool.run([list = std::move(list), options = options_, columns = output_.columns,
                                  &transcripts = parts_.transcripts](std::stop_token) mutable {
          return render(std::move(list), options, columns, transcripts);
        });
    if (text != shown) {
      shown = text;
      const bool read = co_await parts_.writer.run([write = output_.write, text = std::move(text)](
                                                       std::stop_token stop) { return write(text, stop); });
      if (!read) {
        finish(0);
        co_return;
      }
    }
    if (error != shownError && error) output_.complain(*error);
    shownError = error;
    if (herdrError != shownHerdrError && herdrError) output_.complain(*herdrError);
    shownHerdrError = herdrError;
    if (once) {
      finish(error ? 1 : 0);
      co_return;
    }
  }
}

Listing ListProgram::current() {
  Listing list;
  const auto shown = [this](const LitAgent& lit) {
    return ShownAgent{lit.agent(), lit.agent().displayTitle(parts_.preferences), lit.light, {}};
  };
  const LitList& delivered = parts_.client.agents().list();
  for (const LitAgent& lit : delivered.agents) list.agents.push_back(shown(lit));
  for (const LitAgent& lit : delivered.loadedCodex) list.loadedCodex.push_back(shown(lit));
  const SourceReport& report = *parts_.client.report();
  list.error = report.scan;
  if (report.herdrWanted || report.herdr) {
    list.herdr = report.herdrStatus;
    list.herdrError = report.herdr;
  }
  return list;
}

void ListProgram::finish(int status) {
  if (!std::exchange(over_, true)) output_.finished(status);
}

}  // namespace ostrel::console
