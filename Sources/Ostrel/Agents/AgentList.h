// Lists of agents as they are shown: shared, immutable records, so that a merged list costs no copies and
// lasts beyond the source that it came from. May cross threads.
#pragma once

#include <cstddef>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Agents/HerdrAgent.h"

namespace ostrel {

// An agent with what is derived from it once.
struct ListedAgent {
  HerdrAgent agent;
  std::string id;                           // `agent.id()`
  std::optional<std::string> conversation;  // of its transcript or its manual link; a UUID in lower case

  explicit ListedAgent(HerdrAgent record, std::optional<std::string> conversationOfRecord = {})
      : agent(std::move(record)), id(agent.id()), conversation(std::move(conversationOfRecord)) {}
};

// Iterates as `const HerdrAgent&`.
class AgentList {
 public:
  using Entry = std::shared_ptr<const ListedAgent>;

  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = HerdrAgent;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    explicit Iterator(const Entry* at) : at_(at) {}
    const HerdrAgent& operator*() const { return (*at_)->agent; }
    const HerdrAgent* operator->() const { return &(*at_)->agent; }
    Iterator& operator++() {
      ++at_;
      return *this;
    }
    Iterator operator++(int) { return Iterator(at_++); }
    bool operator==(const Iterator&) const = default;

   private:
    const Entry* at_ = nullptr;
  };

  AgentList() = default;
  explicit AgentList(const std::vector<HerdrAgent>& agents) {
    for (const HerdrAgent& agent : agents) add(std::make_shared<ListedAgent>(agent));
  }

  void add(Entry entry) { entries_.push_back(std::move(entry)); }
  void reserve(std::size_t count) { entries_.reserve(count); }

  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  const HerdrAgent& operator[](std::size_t index) const { return entries_[index]->agent; }
  Iterator begin() const { return Iterator(entries_.data()); }
  Iterator end() const { return Iterator(entries_.data() + entries_.size()); }
  const std::vector<Entry>& entries() const { return entries_; }

 private:
  std::vector<Entry> entries_;
};

}  // namespace ostrel
