#include "ListProgram.h"

#include <utility>

#include <fmt/format.h>

namespace ostrel::console {

namespace {

constexpr Duration kForever = std::chrono::hours(24 * 365);

// Looks at files: background work.
std::string render(AgentList list, const Options& options, bool columns, AgentTranscript& transcripts) {
  if (!options.json) {
    // `watch` ends each list with an empty line.
    return asText(list, columns) + (options.command == Options::Command::watch ? "\n" : "");
  }
  for (ShownAgent& shown : list.agents) {
    const HerdrAgent& agent = shown.agent;
    if (!agent.transcriptReference) continue;
    try {
      shown.transcript =
          transcripts.resolve(agent.transcriptReference, agent.transcriptKind, agent.provider).string();
    } catch (const Failure&) {
      // A conversation that has no file yet.
    }
  }
  return asJson(list);
}

}  // namespace

ListProgram::ListProgram(Parts parts, Options options, Output output)
    : parts_(parts), options_(options), output_(std::move(output)), tasks_(parts.loop) {}

void ListProgram::start() {
  scans_ = parts_.client.local().scans().observe([this] { changed_.raise(); });
  if (options_.command == Options::Command::agents) {
    deadline_ = parts_.loop.after(options_.wait, [this] {
      const std::chrono::duration<double> seconds = options_.wait;
      output_.complain(fmt::format("The first scan took longer than {:g} seconds.", seconds.count()));
      finish(1);
    });
  }
  tasks_.start(run());
  parts_.client.startDiscovery();
}

Task<void> ListProgram::run() {
  const bool once = options_.command == Options::Command::agents;
  std::optional<std::string> shown;
  std::optional<std::string> shownError;
  for (;;) {
    co_await changed_.waitFor(kForever);
    AgentList list = current();
    const std::optional<std::string> error = list.error;
    // By value: the job may outlive this program's objects.
    std::string text =
        co_await parts_.pool.run([list = std::move(list), options = options_, columns = output_.columns,
                                  &transcripts = parts_.transcripts](std::stop_token) mutable {
          return render(std::move(list), options, columns, transcripts);
        });
    if (text != shown) {
      shown = text;
      const bool read = co_await parts_.pool.run(
          [write = output_.write, text = std::move(text)](std::stop_token) { return write(text); });
      if (!read) {
        finish(0);
        co_return;
      }
    }
    if (error != shownError && error) output_.complain(*error);
    shownError = error;
    if (once) {
      finish(error ? 1 : 0);
      co_return;
    }
  }
}

AgentList ListProgram::current() {
  const std::vector<HerdrAgent>& agents = parts_.client.inventory().primary;
  parts_.client.observeStates(agents);
  AgentList list;
  for (const HerdrAgent& agent : agents) {
    list.agents.push_back({agent, agent.displayTitle(parts_.preferences), parts_.client.light(agent), {}});
  }
  list.error = *parts_.client.local().error();
  return list;
}

void ListProgram::finish(int status) {
  if (!std::exchange(over_, true)) output_.finished(status);
}

}  // namespace ostrel::console
