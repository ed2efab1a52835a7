#include "Codex/CodexRequestController.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "Codex/CodexCard.h"

namespace ostrel {

namespace {

constexpr std::size_t kMostDetailBytes = 16'000'000;
// Of what is on its way from the worker, which reads as fast as a server sends. What comes beyond it is not
// shown; the terminal still asks.
constexpr std::size_t kMostOnTheWay = 64'000'000;

std::size_t sizeOf(const CodexRequestEvent& event) {
  if (const auto* const item = std::get_if<codexevent::Item>(&event)) return item->bytes.size();
  if (const auto* const received = std::get_if<codexevent::Received>(&event))
    return received->request.payload.size();
  return 0;
}

}  // namespace

CodexRequestController::CodexRequestController(MainLoop& loop, CodexRequestWorker::Pace pace)
    : loop_(loop), pace_(pace) {}

CodexRequestController::~CodexRequestController() = default;

void CodexRequestController::start(const std::string& socket) {
  if (worker_) return;
  alive_ = std::make_shared<bool>();
  worker_ = std::make_unique<CodexRequestWorker>(
      socket,
      [this, &loop = loop_, weak = std::weak_ptr(alive_),
       onTheWay = std::make_shared<std::atomic<std::size_t>>()](CodexRequestEvent event) {
        const std::size_t size = sizeOf(event);
        if (size > 0 && *onTheWay + size > kMostOnTheWay) return;
        *onTheWay += size;
        loop.post([this, weak, onTheWay, size, event = std::move(event)] {
          *onTheWay -= size;
          if (!weak.expired()) receive(event);
        });
      },
      pace_);
  port_ = worker_.get();
  worker_->start();
}

void CodexRequestController::stop() {
  port_ = nullptr;
  alive_.reset();
  worker_.reset();
  wanted_.clear();
  runID_.clear();
  error_.set(std::nullopt);
  clear();
}

void CodexRequestController::watch(std::set<std::string> threads) {
  wanted_ = threads;
  if (port_) port_->watch(std::move(threads));
}

bool CodexRequestController::answer(const CodexRequest& request, std::string result) {
  const std::string key = request.id();
  if (!port_ || !connectedThreads_->contains(request.threadID) || sent_->contains(key)) return false;
  if (std::ranges::find(*requests_, request) == requests_->end()) return false;
  setSent(key, true);
  setReplyError(key, std::nullopt);
  port_->reply(request, std::move(result));
  if (onAnswer) onAnswer();  // the last step: whoever hears of it may stop us
  return true;
}

std::string CodexRequestController::status(const std::string& thread) const {
  if (connectedThreads_.get().contains(thread)) return "Connected · reply and review requests here";
  return wanted_.contains(thread) ? "Connecting conversation controls…"
                                  : "Quiet · what Codex asks is shown here";
}

void CodexRequestController::receive(const CodexRequestEvent& event) {
  std::visit([this](const auto& one) { on(one); }, event);
}

void CodexRequestController::on(const codexevent::Reset& event) {
  runID_ = event.epoch;
  clear();
  error_.set(event.error);
}

void CodexRequestController::on(const codexevent::Received& event) {
  if (event.request.epoch != runID_) return;
  const std::string key = event.request.id();
  auto requests = *requests_;
  const auto known = std::ranges::find(requests, key, &CodexRequest::id);
  if (known == requests.end()) {
    requests.push_back(event.request);
  } else {
    *known = event.request;
  }
  setReplyError(key, std::nullopt);
  requests_.set(std::move(requests));
}

void CodexRequestController::on(const codexevent::Resolved& event) {
  if (event.epoch != runID_) return;
  auto requests = *requests_;
  std::erase_if(requests, [&](const CodexRequest& request) { return request.id() == event.key; });
  requests_.set(std::move(requests));
  setSent(event.key, false);
  setReplyError(event.key, std::nullopt);
  dropDetails();
}

// What no open request is about.
void CodexRequestController::dropDetails() {
  if (details_.empty()) return;
  std::set<std::string> needed;
  for (const CodexRequest& request : *requests_) {
    if (auto key = CodexCard::itemKey(request)) needed.insert(std::move(*key));
  }
  std::erase_if(details_, [&](const auto& entry) { return !needed.contains(entry.first); });
}

void CodexRequestController::on(const codexevent::Sent&) {
  // The card says since the click that its answer is on its way.
}

void CodexRequestController::on(const codexevent::Connected& event) {
  if (event.epoch != runID_) return;
  auto threads = *connectedThreads_;
  threads.insert(event.thread);
  connectedThreads_.set(std::move(threads));
  error_.set(std::nullopt);
}

void CodexRequestController::on(const codexevent::Disconnected& event) {
  if (event.epoch != runID_) return;
  auto threads = *connectedThreads_;
  threads.erase(event.thread);
  connectedThreads_.set(std::move(threads));
  auto requests = *requests_;
  std::erase_if(requests, [&](const CodexRequest& request) {
    if (request.threadID != event.thread) return false;
    setSent(request.id(), false);
    setReplyError(request.id(), std::nullopt);
    return true;
  });
  requests_.set(std::move(requests));
  dropDetails();
}

void CodexRequestController::on(const codexevent::Failed& event) {
  if (!ofThisRun(event.key)) return;
  setSent(event.key, false);
  setReplyError(event.key, event.words);
}

void CodexRequestController::on(const codexevent::Item& event) {
  if (event.epoch != runID_) return;
  std::size_t bytes = event.bytes.size();
  for (const auto& [key, detail] : details_) bytes += detail.size();
  if (bytes > kMostDetailBytes) return;
  details_[event.thread + ":" + event.item] = event.bytes;
  detailsChanged_.notify();
}

void CodexRequestController::clear() {
  requests_.set({});
  sent_.set({});
  connectedThreads_.set({});
  details_.clear();
  replyErrors_.set({});
}

void CodexRequestController::setSent(const std::string& key, bool sent) {
  auto keys = *sent_;
  if (sent) {
    keys.insert(key);
  } else {
    keys.erase(key);
  }
  sent_.set(std::move(keys));
}

void CodexRequestController::setReplyError(const std::string& key, std::optional<std::string> words) {
  auto errors = *replyErrors_;
  if (words) {
    errors[key] = std::move(*words);
  } else {
    errors.erase(key);
  }
  replyErrors_.set(std::move(errors));
}

}  // namespace ostrel
