// A message of 16,000,000 bytes to the app server and back, over a Unix socket.
//
// The server echoes frames as they are, unmasked. The rival is a bare client: it masks 128 KiB at a time
// while writing, receives into memory that it keeps, checks UTF-8 and finds one member with simdjson's
// On-Demand; no limits, no deadlines. Goal: at most 1.3 times as long.
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>
#include <simdjson.h>

#include "Codex/CodexFrames.h"
#include "Codex/CodexLocalServer.h"
#include "Codex/CodexMessage.h"
#include "Figures.h"

namespace ostrel::bench {
namespace {

constexpr std::size_t kStep = 128 * 1024;

bool receiveAll(int fd, char* into, std::size_t count) {
  while (count > 0) {
    const ssize_t got = ::recv(fd, into, count, 0);
    if (got <= 0) return false;
    into += got;
    count -= static_cast<std::size_t>(got);
  }
  return true;
}

bool sendAll(int fd, const char* from, std::size_t count) {
  while (count > 0) {
    const ssize_t sent = ::send(fd, from, count, MSG_NOSIGNAL);
    if (sent <= 0) return false;
    from += sent;
    count -= static_cast<std::size_t>(sent);
  }
  return true;
}

void mask(char* out, const char* in, std::size_t count, std::uint32_t key) {
  const std::uint64_t twice = std::uint64_t{key} << 32 | key;
  std::size_t at = 0;
  for (; at + 8 <= count; at += 8) {
    std::uint64_t word;
    std::memcpy(&word, in + at, 8);
    word ^= twice;
    std::memcpy(out + at, &word, 8);
  }
  for (; at < count; ++at) out[at] = static_cast<char>(in[at] ^ static_cast<char>(key >> 8 * (at % 4)));
}

// Upgrades, answers the first request, takes the notification after it, and echoes from then on.
class EchoServer {
 public:
  EchoServer() : listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    char folder[] = "/tmp/ostrel-bench-XXXXXX";
    if (!::mkdtemp(folder)) std::abort();
    folder_ = folder;
    path_ = folder_ + "/s";
    const sockaddr_un address = addressOf(path_);
    if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_.get(), 8) != 0)
      std::abort();
    thread_ = std::thread([this] {
      for (;;) {
        const UniqueFd fd(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!fd) return;
        serve(fd.get());
      }
    });
  }
  EchoServer(const EchoServer&) = delete;
  EchoServer& operator=(const EchoServer&) = delete;
  ~EchoServer() {
    ::shutdown(listener_.get(), SHUT_RDWR);
    thread_.join();
    ::unlink(path_.c_str());
    ::rmdir(folder_.c_str());
  }
  const std::string& path() const { return path_; }
  static sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
  }

 private:
  static void serve(int fd) {
    std::string head;
    while (!head.ends_with("\r\n\r\n")) {
      char byte;
      if (!receiveAll(fd, &byte, 1)) return;
      head += byte;
    }
    const auto key = head.find("Sec-WebSocket-Key: ") + 19;
    const std::string reply = "HTTP/1.1 101 X\r\nA: " + codex::acceptKey(head.substr(key, 24)) + "\r\n\r\n";
    if (!sendAll(fd, reply.data(), reply.size())) return;
    std::vector<char> payload(codex::kLargestMessage);
    for (int number = 0;; ++number) {
      std::array<unsigned char, 14> header;
      const auto at = [&](std::size_t from, std::size_t count) {
        return receiveAll(fd, reinterpret_cast<char*>(header.data()) + from, count);
      };
      if (!at(0, 2)) return;
      std::size_t length = header[1] & 0x7f, extra = length == 127 ? 8 : length == 126 ? 2 : 0;
      if (!at(2, extra + 4)) return;
      if (extra) length = 0;
      for (std::size_t i = 0; i < extra; ++i) length = length << 8 | header[2 + i];
      std::uint32_t word;
      std::memcpy(&word, header.data() + 2 + extra, 4);
      if (length > payload.size() || !receiveAll(fd, payload.data(), length)) return;
      if (number == 1) continue;
      header[1] = static_cast<unsigned char>(header[1] & 0x7f);
      if (number == 0) {
        const std::string first = std::string("\x81\x14") + R"({"id":1,"result":{}})";
        if (!sendAll(fd, first.data(), first.size())) return;
        continue;
      }
      mask(payload.data(), payload.data(), length, word);
      if (!sendAll(fd, reinterpret_cast<const char*>(header.data()), 2 + extra) ||
          !sendAll(fd, payload.data(), length))
        return;
    }
  }

  UniqueFd listener_;
  std::string folder_;
  std::string path_;
  std::thread thread_;
};

const std::string& message() {
  static const std::string made = [] {
    std::string text = R"({"id":7,"result":{"text":")";
    while (text.size() < codex::kLargestMessage - 64)
      text += "Some words of a long answer, é, and a line.\\n";
    text.resize(codex::kLargestMessage - 64);
    while (text.back() == '\\' || static_cast<unsigned char>(text.back()) >= 0x80) text.pop_back();
    text.resize(codex::kLargestMessage - 3, '.');
    return text + R"("}})";
  }();
  return made;
}

class BareClient {
 public:
  explicit BareClient(const std::string& path) : fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = EchoServer::addressOf(path);
    if (::connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) std::abort();
    const std::string upgrade = codex::upgradeRequest("dGhlIHNhbXBsZSBub25jZQ==");
    if (!sendAll(fd_.get(), upgrade.data(), upgrade.size())) std::abort();
    for (std::string head; !head.ends_with("\r\n\r\n");) {
      char byte;
      if (!receiveAll(fd_.get(), &byte, 1)) std::abort();
      head += byte;
    }
    write(R"({"id":1})");
    char first[22];
    if (!receiveAll(fd_.get(), first, sizeof first)) std::abort();
    write("{}");
  }

  std::size_t trip(std::string_view text) {
    write(text);
    unsigned char header[10];
    if (!receiveAll(fd_.get(), reinterpret_cast<char*>(header), sizeof header)) std::abort();
    std::size_t length = 0;
    for (std::size_t i = 2; i < 10; ++i) length = length << 8 | header[i];
    if (capacity_ < length + simdjson::SIMDJSON_PADDING) {
      capacity_ = length + simdjson::SIMDJSON_PADDING;
      memory_ = std::make_unique_for_overwrite<char[]>(capacity_);
    }
    if (!receiveAll(fd_.get(), memory_.get(), length) || !simdjson::validate_utf8(memory_.get(), length))
      std::abort();
    simdjson::ondemand::document document;
    std::int64_t id = 0;
    if (parser_.iterate(memory_.get(), length, capacity_).get(document) || document["id"].get_int64().get(id))
      std::abort();
    return length + static_cast<std::size_t>(id);
  }

 private:
  void write(std::string_view text) {
    const std::uint32_t key = 0x9f3a51c7;
    std::vector<char> buffer(14 + kStep);
    std::size_t header = 2;
    buffer[0] = '\x81';
    buffer[1] = static_cast<char>(0x80 | (text.size() < 126 ? text.size() : 127));
    if (text.size() >= 126) {
      for (int shift = 56; shift >= 0; shift -= 8) buffer[header++] = static_cast<char>(text.size() >> shift);
    }
    std::memcpy(buffer.data() + header, &key, 4);
    header += 4;
    for (std::size_t at = 0; at < text.size(); at += kStep) {
      const std::size_t count = std::min(kStep, text.size() - at);
      mask(buffer.data() + header, text.data() + at, count, key);
      if (!sendAll(fd_.get(), buffer.data(), header + count)) std::abort();
      header = 0;
    }
  }
  UniqueFd fd_;
  std::size_t capacity_ = 0;
  std::unique_ptr<char[]> memory_;
  simdjson::ondemand::parser parser_;
};

void bare(benchmark::State& state) {
  EchoServer server;
  BareClient client(server.path());
  for (auto _ : state) benchmark::DoNotOptimize(client.trip(message()));
}

void ours(benchmark::State& state) {
  EchoServer server;
  CodexLocalServer::Connection connection(server.path());
  for (auto _ : state) {
    connection.renewDeadline();
    connection.frame(message());
    std::string bytes = connection.message();
    const auto parsed = CodexMessage::parse(bytes);
    if (!parsed || parsed->id != "7" || bytes.size() != codex::kLargestMessage) std::abort();
    benchmark::DoNotOptimize(parsed->result->size());
  }
}

BENCHMARK(bare)->Name("Codex/bare")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ours)->Name("Codex/ours")->Unit(benchmark::kMillisecond)->UseRealTime();

[[maybe_unused]] const bool figures =
    figure("16 MB to the app server and back, to a bare client", "Codex/ours", "Codex/bare", 1.3);

}  // namespace
}  // namespace ostrel::bench
