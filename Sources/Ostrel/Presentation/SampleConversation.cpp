#include "SampleConversation.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "Client/AgentLabels.h"
#include "Runtime/Failure.h"

namespace ostrel {

namespace {

struct Said {
  const char* role;
  const char* timestamp;
  const char* text;
};

constexpr Said kConversation[] = {
    {"user", "2026-11-20T08:58:04Z",
     "The invoices table has grown to 40 million rows. Can you look at why the nightly job takes two hours?"},
    {"assistant", "2026-11-20T08:58:31Z",
     "I'll look at the job first, then at what the database does with its queries.\n\n"
     "The job reads **every** invoice once for each customer: `jobs/nightly.py:88` asks for them inside the "
     "loop. With 31,000 customers that is 31,000 full scans, since `invoices.customer_id` has no index."},
    {"tool", nullptr,
     "Ran · psql -c \"explain analyze select * from invoices where customer_id = 812\" · 3.4s"},
    {"assistant", "2026-11-20T08:59:12Z",
     "The plan says the same:\n\n```\nSeq Scan on invoices  (cost=0.00..912441.20 rows=1290)\n"
     "  Filter: (customer_id = 812)\n  Rows Removed by Filter: 40112873\n```\n\n"
     "Three ways to mend it, from small to large:\n\n"
     "1. An index on `customer_id`. Minutes of work, and the job falls to about four minutes.\n"
     "2. One query for all customers, grouped in the database.\n"
     "3. Partitions by month, which the archive job wants anyway."},
    {"user", "2026-11-20T09:02:40Z", "Do the first two. Keep the migration reversible."},
    {"activity", nullptr,
     "<task-notification>\n<summary>Background check of the test database finished</summary>\n"
     "<result>12 tables, 0 differences</result>\n</task-notification>"},
    {"assistant", "2026-11-20T09:04:18Z",
     "Done. The migration makes the index without locking the table, and takes it away again:\n\n"
     "```python\ndef upgrade():\n    with op.get_context().autocommit_block():\n"
     "        op.create_index(\n            \"ix_invoices_customer\", \"invoices\", [\"customer_id\"],\n"
     "            postgresql_concurrently=True)\n\n\ndef downgrade():\n"
     "    op.drop_index(\"ix_invoices_customer\", \"invoices\")\n```\n\n"
     "| Step | Before | After |\n|---|---|---|\n| Read invoices | 1 h 52 min | 41 s |\n"
     "| Write totals | 6 min | 6 min |\n\n"
     "The tests in [tests/test_nightly.py](tests/test_nightly.py) pass. What is left is to run the migration "
     "on the real database; I'd do that outside business hours."},
    {"user", "2026-11-20T09:06:02Z", "Sounds right. Run it against staging now."},
};

constexpr const char* kScreen =
    "  ledger  main ✓\n\n❯ Upgrade the bundler and fix what breaks\n\n"
    "✦ I'll start with the lock file.\n\n  ✓ ReadFile  package.json\n  ✓ Shell     npm outdated\n\n"
    "  Package      Current   Wanted   Latest\n  esbuild       0.19.2   0.19.8   0.24.0\n"
    "  vite           5.0.1    5.4.2    6.0.3\n\n"
    "✦ Two majors are behind. I'll take esbuild first, then vite.\n\n"
    "  ⠏ Running npm install esbuild@0.24.0 (12s)\n";

}  // namespace

void SampleConversation::show(const HerdrAgent& agent) {
  agent_ = agent;
  std::vector<AgentTranscriptMessage> messages;
  for (const Said& said : kConversation) {
    AgentTranscriptMessage& message = messages.emplace_back();
    message.id = "sample-" + std::to_string(messages.size());
    message.role = said.role;
    message.text = said.text;
    if (said.timestamp) message.timestamp = said.timestamp;
  }
  shown_.transcriptNotice.set(std::nullopt);
  shown_.sessionDetails.set({.branch = "nightly-index", .model = "opus-4.1", .effort = "high"});
  shown_.transcript.set(std::move(messages));
  const bool pane = !agent.isExternal() && !agent.isCodexLive();
  shown_.output.set(pane ? kScreen : "");
  shown_.hasLoadedOutput.set(pane);
  changed_.notify();
}

std::string SampleConversation::statusLabel(const HerdrAgent& agent) const {
  const AgentState state = agent.state;
  const AgentLight light = state == AgentState::blocked   ? AgentLight::needsYou
                           : state == AgentState::working ? AgentLight::working
                           : state == AgentState::done    ? AgentLight::done
                                                          : AgentLight::idle;
  return agentLabels::statusLabel(agent, {.connected = true, .light = light});
}

std::optional<std::string> SampleConversation::refusal(AgentAction action, std::string_view) {
  if (action == AgentAction::open || action == AgentAction::rename) return std::nullopt;
  return "This agent is made up: it has no file.";
}

void SampleConversation::open(std::string_view id, bool) {
  const auto found =
      std::ranges::find(agents_.agents(), id, [](const HerdrAgent& each) { return each.id(); });
  if (found == agents_.agents().end()) throw Failure("This agent is not there any more.");
  requests_.ask(found->state == AgentState::blocked ? "bash" : "");
  show(*found);
}

void SampleConversation::close() {
  agent_.reset();
  changed_.notify();
}

void SampleConversation::refuse(AgentAction action, std::string_view id) {
  throw Failure(refusal(action, id).value());
}

void SampleConversation::rename(std::string_view id, std::string_view title) {
  preferences_.set("agentTitle." + std::string(id), title);
}

void SampleConversation::link(std::string_view id, const std::string&) { refuse(AgentAction::link, id); }

void SampleConversation::unlink(std::string_view id) { refuse(AgentAction::unlink, id); }

}  // namespace ostrel
