// In the place of the worker behind `CodexRequestController`: notes what it is given.
#pragma once

#include <deque>
#include <set>
#include <string>
#include <utility>

#include "Codex/CodexRequestWorker.h"

namespace ostrel {

struct FakeRequestPort final : CodexRequestPort {
  std::set<std::string> watched;
  std::deque<std::pair<CodexRequest, std::string>> replies;

  void watch(std::set<std::string> threads) override { watched = std::move(threads); }
  void reply(CodexRequest request, std::string result) override {
    replies.emplace_back(std::move(request), std::move(result));
  }
};

}  // namespace ostrel
