// A made-up Codex app server on a real socket: the test's own script serves each connection.
#pragma once

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "Codex/CodexFrames.h"
#include "Runtime/Json.h"
#include "Support/SocketStandIn.h"

namespace ostrel {

class CodexStandIn : public SocketStandIn {
 public:
  struct Peer : SocketStandIn::Peer {
    void open() {
      const std::string asked = head();
      const auto key = asked.find("Sec-WebSocket-Key: ") + 19;
      raw("HTTP/1.1 101 X\r\nA: " + codex::acceptKey(asked.substr(key, 24)) + "\r\n\r\n");
      respond(request(), Json::object());
      EXPECT_EQ(frame(), R"({"method":"initialized"})");
    }
    std::string head() {
      std::string head;
      while (!head.ends_with("\r\n\r\n")) head += take(1);
      return head;
    }
    // The payload of the client's next frame, of less than 64 KiB.
    std::string frame() {
      const std::string head = take(2);
      EXPECT_TRUE(head[1] & 0x80) << "an unmasked frame";
      unsigned length = head[1] & 0x7f;
      if (length == 126) {
        const std::string more = take(2);
        length = static_cast<unsigned char>(more[0]) * 256u + static_cast<unsigned char>(more[1]);
      }
      const std::string mask = take(4);
      std::string payload = take(length);
      for (std::size_t i = 0; i < length; ++i) payload[i] = static_cast<char>(payload[i] ^ mask[i % 4]);
      return payload;
    }
    Json request() { return Json::parse(frame()); }
    void respond(const Json& request, const Json& result, const char* member = "result") {
      raw(bytes(0x81, Json{{"id", request["id"]}, {member, result}}.dump()));
    }
    void refuse(const Json& request, const char* words) { respond(request, {{"message", words}}, "error"); }
  };

  // A server's frame.
  static std::string bytes(int first, std::string_view payload) {
    const std::size_t size = payload.size();
    const int width = size <= 125 ? 0 : size <= 0xffff ? 2 : 8;
    std::string bytes{static_cast<char>(first), static_cast<char>(width == 0   ? size
                                                                  : width == 2 ? 126
                                                                               : 127)};
    for (int i = width - 1; i >= 0; --i) bytes += static_cast<char>(size >> (8 * i));
    return bytes.append(payload);
  }

  explicit CodexStandIn(std::function<void(Peer&, int number)> script)
      : SocketStandIn([script = std::move(script)](SocketStandIn::Peer client, int number) {
          Peer peer(client);
          script(peer, number);
        }) {}
};

}  // namespace ostrel
