#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Platform/Linux/SocketDiagnosis.h"
#include "Runtime/UniqueFd.h"
#include "Support/ForkedProcess.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, path.c_str());
  return address;
}

UniqueFd listening(const std::string& path) {
  UniqueFd listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = addressOf(path);
  EXPECT_EQ(::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(::listen(listener.get(), 8), 0);
  return listener;
}

// Keeps what it has connected open until it is ended.
void connectTo(const std::string& path) {
  const int client = ::socket(AF_UNIX, SOCK_STREAM, 0);
  const sockaddr_un address = addressOf(path);
  ::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

TEST(SocketDiagnosis, TellsWhoIsConnectedToASocketThroughItsLinkToo) {
  TemporaryFolder folder;
  const std::string path = folder.path() / "s", other = folder.path() / "other",
                    link = folder.path() / "link";
  const UniqueFd listener = listening(path), elsewhere = listening(other);
  std::filesystem::create_symlink(path, link);
  const ForkedProcess client([&] { connectTo(path); });
  const ForkedProcess stranger([&] { connectTo(other); });
  const ForkedProcess alone;
  SocketDiagnosis diagnosis;
  const std::vector<std::int32_t> all = {client.pid(), stranger.pid(), alone.pid()};
  // Accepted: one that still waits in the listener's queue has no name yet.
  const UniqueFd accepted(::accept(listener.get(), nullptr, nullptr));
  const UniqueFd second(::accept(elsewhere.get(), nullptr, nullptr));
  const auto found = diagnosis.clients(link, all);
  if (!found) GTEST_SKIP() << "this kernel does not tell";
  EXPECT_EQ(*found, std::set<std::int32_t>{client.pid()});
  EXPECT_EQ(diagnosis.clients(other, all), std::set<std::int32_t>{stranger.pid()});
  EXPECT_EQ(diagnosis.clients(folder.path() / "missing", all), std::set<std::int32_t>{});
  client.kill();
  EXPECT_EQ(diagnosis.clients(link, all), std::set<std::int32_t>{});
}

// One message: length, type, flags, sequence, port; then `body`.
std::string message(std::uint16_t type, const std::string& body, std::uint32_t claimed = 0) {
  const std::uint32_t length = claimed ? claimed : static_cast<std::uint32_t>(16 + body.size());
  std::string bytes(16, '\0');
  std::memcpy(bytes.data(), &length, 4);
  std::memcpy(bytes.data() + 4, &type, 2);
  return bytes + body + std::string((4 - body.size() % 4) % 4, '\0');
}
std::string attribute(std::uint16_t type, const std::string& value, int lengthOff = 0) {
  const auto length = static_cast<std::uint16_t>(static_cast<int>(4 + value.size()) + lengthOff);
  std::string bytes(4, '\0');
  std::memcpy(bytes.data(), &length, 2);
  std::memcpy(bytes.data() + 2, &type, 2);
  return bytes + value + std::string((4 - value.size() % 4) % 4, '\0');
}

TEST(SocketDiagnosis, SurvivesWhateverTheListHolds) {
  const std::string head = std::string("\1\1\1\0", 4) + std::string("\x2a\0\0\0", 4) + std::string(8, '\0');
  const std::string good =
      message(20, head + attribute(0, std::string("/run/s\0", 7)) + attribute(2, std::string("\7\0\0\0", 4)));
  std::map<std::uint32_t, LocalSocket> sockets;
  bool failed = false;
  EXPECT_TRUE(parseSocketList(good + good, sockets, failed));
  EXPECT_EQ(sockets, (std::map<std::uint32_t, LocalSocket>{{42, {"/run/s", 7}}}));
  EXPECT_FALSE(parseSocketList(good + message(3, std::string(4, '\0')) + good, sockets, failed));
  EXPECT_FALSE(failed);
  EXPECT_FALSE(parseSocketList(message(2, std::string(4, '\0')), sockets, failed));
  EXPECT_TRUE(failed);
  for (std::size_t size = 0; size < good.size(); ++size)
    parseSocketList(std::string(good.data(), size), sockets, failed);
  for (const int off : {-4, -1, 1, 1000})
    parseSocketList(message(20, head + attribute(2, "1234", off) + attribute(2, "", off)), sockets, failed);
  for (const std::uint32_t claimed : {1u, 15u, 17u, 0xffffffffu})
    parseSocketList(message(20, head, claimed), sockets, failed);
}

}  // namespace
}  // namespace ostrel
