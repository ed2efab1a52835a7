#include "Codex/CodexLocalServer.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <utility>

#include "Codex/CodexMessage.h"
#include "Runtime/Random.h"
#include "Runtime/Text.h"
#include "Runtime/UnixSocket.h"

namespace ostrel::CodexLocalServer {

namespace {

constexpr int kMostSteps = 64;

TimePoint now() { return std::chrono::time_point_cast<Duration>(std::chrono::steady_clock::now()); }

timeval seconds(Duration time) {
  const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
  return {micros / 1'000'000, micros % 1'000'000};
}

}  // namespace

std::string socketPath(const Environment& environment) {
  return environment.codexFolder().string() + "/app-server-control/app-server-control.sock";
}

void Connection::Shutdown::operator()() const { ::shutdown(fd, SHUT_RDWR); }

Connection::Connection(const std::string& socket, std::stop_token stop, Limits limits)
    : stop_(std::move(stop)), limits_(limits) {
  renewDeadline();
  connect(socket);
  stopping_.emplace(stop_, Shutdown{fd_.get()});
  upgrade();
  call("initialize", {{"clientInfo", {{"name", "ostrel"}, {"version", "0.1"}}},
                      {"capabilities", {{"experimentalApi", true}}}});
  frame(R"({"method":"initialized"})");
}

void Connection::connect(const std::string& socket) {
  fd_ = unixSocket::make(unixSocket::Mode::blocking);
  if (!fd_) throw Failure("Could not open the local Codex connection.");
  const timeval silence = seconds(limits_.silence);
  ::setsockopt(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &silence, sizeof silence);
  ::setsockopt(fd_.get(), SOL_SOCKET, SO_SNDTIMEO, &silence, sizeof silence);
  checkStop();
  // The socket lies below the temporary folder, where its name can be taken by somebody else.
  const auto refusal = unixSocket::connect(fd_, socket);
  if (refusal == unixSocket::Refusal::path) throw Failure("Codex socket path is too long.");
  if (refusal == unixSocket::Refusal::unreachable) throw Failure(kUnavailable);
  if (refusal) throw Failure("The Codex socket belongs to another user.");
}

void Connection::upgrade() {
  std::array<unsigned char, 16> random;
  fillRandom(random);
  const std::string key = text::base64({reinterpret_cast<const char*>(random.data()), random.size()});
  write(codex::upgradeRequest(key));
  std::string reply;
  // One byte at a time: what follows the empty line belongs to the frames.
  while (!reply.ends_with("\r\n\r\n")) {
    if (reply.size() == codex::kLargestUpgrade) throw Failure("Invalid Codex handshake.");
    char byte;
    receive({&byte, 1}, true);
    reply += byte;
  }
  if (!codex::agrees(reply, key)) throw Failure("Codex refused the local connection.");
}

Json Connection::call(std::string_view method, const Json& params) {
  auto result = json::parse(callText(method, params));
  if (!result) throw Failure("Invalid Codex response.");
  return std::move(*result);
}

std::string Connection::callText(std::string_view method, const Json& params) {
  renewDeadline();
  const std::string id = std::to_string(++nextID_);
  frame(json::dump({{"id", nextID_}, {"method", method}, {"params", params}}));
  for (;;) {
    std::string bytes = message();
    const auto parsed = CodexMessage::parse(bytes);
    if (!parsed) throw Failure("Codex sent a message that is not JSON.");
    if (parsed->hasMethod || parsed->id != id) {
      if (onEvent) onEvent(std::move(bytes));
      continue;
    }
    if (parsed->error && parsed->error->starts_with('{')) {
      const auto error = json::parse(*parsed->error);
      throw Refusal(
          (error ? json::string(*error, "message") : std::nullopt).value_or("Codex history request failed."));
    }
    if (!parsed->result || !parsed->result->starts_with('{')) throw Failure("Invalid Codex response.");
    const auto start = static_cast<std::size_t>(parsed->result->data() - bytes.data());
    bytes.resize(start + parsed->result->size());
    bytes.erase(0, start);
    return bytes;
  }
}

void Connection::frame(std::string_view payload, codex::Opcode opcode) {
  codex::FrameWriter::Mask mask;
  fillRandom(mask);
  codex::FrameWriter writer(payload, opcode, mask);
  std::string step(std::min(payload.size() + 14, codex::FrameWriter::kStep), '\0');
  while (const std::size_t count = writer.next(step)) write({step.data(), count});
}

std::string Connection::message() {
  for (;;) {
    const bool begins = reader_.atPart();
    if (auto message = took(receive(reader_.space(), begins))) return std::move(*message);
  }
}

std::optional<std::string> Connection::arrived() {
  // A peer that sends pings without end keeps nobody here.
  for (int steps = 0; steps < kMostSteps; ++steps) {
    checkStop();
    const std::span<char> space = reader_.space();
    const ssize_t count = ::recv(fd_.get(), space.data(), space.size(), MSG_DONTWAIT);
    if (count > 0) {
      lastBytes_ = now();
      renewDeadline();
      if (auto message = took(static_cast<std::size_t>(count))) return message;
      continue;
    }
    if (count < 0 && errno == EINTR) continue;
    const bool nothing = count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    if (nothing && (!midMessage_ || now() < lastBytes_ + limits_.silence)) return std::nullopt;
    checkStop();
    throw Failure("Codex connection closed or timed out.");
  }
  return std::nullopt;
}

std::optional<std::string> Connection::took(std::size_t count) {
  midMessage_ = true;
  switch (reader_.took(count)) {
    case codex::FrameReader::Event::none:
      midMessage_ = !reader_.atStart();
      return std::nullopt;
    case codex::FrameReader::Event::ping:
      midMessage_ = !reader_.atStart();
      frame(reader_.takePing(), codex::Opcode::pong);
      return std::nullopt;
    case codex::FrameReader::Event::message:
      midMessage_ = false;
      return reader_.takeMessage();
  }
  return std::nullopt;
}

std::size_t Connection::receive(std::span<char> space, bool begins) {
  for (;;) {
    checkStop();
    if (now() >= deadline_)
      throw Failure(begins ? "Codex history request exceeded its time or size limit."
                           : "Codex history request timed out.");
    const ssize_t count = ::recv(fd_.get(), space.data(), space.size(), 0);
    if (count > 0) return static_cast<std::size_t>(count);
    if (count < 0 && errno == EINTR) continue;
    checkStop();
    throw Failure("Codex connection closed or timed out.");
  }
}

void Connection::write(std::string_view bytes) {
  while (!bytes.empty()) {
    checkStop();
    // A peer that takes a byte now and then would otherwise keep us for ever.
    if (now() >= deadline_) throw Failure("Codex history request timed out.");
    const ssize_t count = ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      checkStop();
      throw Failure("Codex connection closed while writing.");
    }
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

void Connection::renewDeadline() { deadline_ = now() + limits_.call; }

void Connection::checkStop() const {
  if (stop_.stop_requested()) throw Cancelled();
}

AgentTranscriptSnapshot read(const std::string& socket, const std::string& id, std::stop_token stop) {
  if (!text::canonicalUuid(id)) throw Failure("Invalid Codex conversation ID.");
  Connection connection(socket, std::move(stop));
  const Json found = connection.call("thread/read", {{"threadId", id}, {"includeTurns", false}});
  const Json* const thread = json::member(found, "thread");
  if (!thread || json::string(*thread, "id") != id) throw Failure("Codex returned a different conversation.");
  std::string turns = connection.callText(
      "thread/turns/list",
      {{"threadId", id}, {"limit", 20}, {"sortDirection", "desc"}, {"itemsView", "full"}});
  AgentTranscriptSnapshot snapshot{messages(turns), {}};
  if (const Json* const git = json::member(*thread, "gitInfo"))
    snapshot.details.branch = json::string(*git, "branch");
  snapshot.details.model = json::string(*thread, "model");
  snapshot.details.effort = json::string(*thread, "reasoningEffort");
  return snapshot;
}

}  // namespace ostrel::CodexLocalServer
