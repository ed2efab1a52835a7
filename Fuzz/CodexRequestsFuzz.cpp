// Requests for a person, histories, forms, lists of threads and a conversation's file: any bytes give a card
// and valid JSON answers, or a failure in words. The input's lines: messages of the server; the last one is
// also what is typed.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "Codex/CodexAnswers.h"
#include "Codex/CodexCard.h"
#include "Codex/CodexConnectionState.h"
#include "Codex/CodexLive.h"
#include "Codex/CodexThreads.h"
#include "Discovery/CodexRollout.h"
#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace {

using namespace ostrel;

constexpr const char* kThread = "0190c0de-0000-7000-8000-000000000001";

template <class Work>
void attempt(Work work) {
  try {
    work();
  } catch (const Failure& failure) {
    if (failure.message().empty()) std::abort();
  }
}

void valid(const std::string& result) {
  if (!json::parse(result)) std::abort();
}

void show(const CodexRequest& request, const std::string& typed) {
  const CodexCard card = CodexCard::of(request, typed);
  if (card.title.empty() && request.method != "mcpServer/elicitation/request") std::abort();
  // Every choice on offer is taken, as it is or with what was typed, and nothing else is.
  for (const bool linkOpened : {false, true}) {
    const CodexCard shown = CodexCard::of(request, typed, linkOpened);
    for (const RequestChoice& choice : shown.choices) {
      RequestAnswer answer{.choice = choice.id};
      if (choice.takesEntries) {
        for (const auto& field : shown.fields) answer.entries[field.key] = {typed};
        for (const auto& question : shown.questions) answer.entries[question.id] = {typed};
      }
      attempt([&] { valid(codexAnswers::result(request, shown, linkOpened, answer)); });
    }
  }
  bool taken = false;
  attempt([&] {
    codexAnswers::result(request, card, false, {.choice = "no such choice"});
    taken = true;
  });
  if (taken) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto lines = text::split(bytes, '\n');
  const std::string typed = text::repairUtf8(lines.back());
  std::vector<CodexRequest> open;
  CodexConnectionState state("E", [&](const CodexRequestEvent& event) {
    if (const auto* received = std::get_if<codexevent::Received>(&event)) open.push_back(received->request);
  });
  state.joining(kThread);
  state.joined(kThread);
  CodexThreads threads;
  for (const auto line : lines) {
    state.event(std::string(line));
    threads.event(std::string(line), WallTime());
    std::string history(line);
    attempt([&] { CodexLocalServer::messages(history); });
    if (const auto value = json::parse(line)) {
      if (const auto agent = CodexLive::agent(*value); agent && agent->title.empty()) std::abort();
    }
  }
  for (const HerdrAgent& agent : threads.agents()) {
    if (agent.title.empty()) std::abort();
  }
  // The file of a conversation tells the same in one piece and in two.
  CodexRolloutParser whole, cut;
  whole.feed(bytes);
  cut.feed(bytes.substr(0, size / 2));
  cut.feed(bytes.substr(size / 2));
  if (whole.turn() != cut.turn()) std::abort();
  for (const CodexRequest& request : open) {
    show(request, typed);
    // At most once, and as JSON with the id at its front.
    int answered = 0;
    for (int i = 0; i < 2; ++i) {
      const auto text = state.answer(request, "{}", {kThread});
      if (!text) continue;
      valid(*text);
      ++answered;
    }
    if (answered > 1) std::abort();
  }
  return 0;
}
