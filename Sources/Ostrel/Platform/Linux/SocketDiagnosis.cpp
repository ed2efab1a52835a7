#include "Platform/Linux/SocketDiagnosis.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "Runtime/UniqueFd.h"

namespace ostrel {

namespace {

namespace fs = std::filesystem;

// A desktop has some hundreds; beyond this many nothing is said.
constexpr std::size_t kMostSockets = 100'000;
constexpr std::size_t kDatagram = 64 * 1024;  // the kernel's answers are 32 KiB at most
constexpr timeval kPatience{1, 0};            // the kernel answers at once, or never

template <class T>
T at(std::string_view bytes, std::size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

std::size_t aligned(std::size_t size) { return (size + 3) & ~std::size_t{3}; }

// One socket: its fixed part, then attributes.
void parseSocket(std::string_view body, std::map<std::uint32_t, LocalSocket>& sockets) {
  if (body.size() < sizeof(unix_diag_msg) || sockets.size() >= kMostSockets) return;
  LocalSocket& socket = sockets[at<unix_diag_msg>(body, 0).udiag_ino];
  for (std::size_t offset = aligned(sizeof(unix_diag_msg)); offset + sizeof(rtattr) <= body.size();) {
    const auto head = at<rtattr>(body, offset);
    if (head.rta_len < sizeof(rtattr) || head.rta_len > body.size() - offset) return;
    const std::string_view value = body.substr(offset + sizeof(rtattr), head.rta_len - sizeof(rtattr));
    if (head.rta_type == UNIX_DIAG_NAME) socket.name = value.substr(0, value.find('\0'));
    if (head.rta_type == UNIX_DIAG_PEER && value.size() >= sizeof(std::uint32_t))
      socket.peer = at<std::uint32_t>(value, 0);
    offset += aligned(head.rta_len);
  }
}

std::optional<std::map<std::uint32_t, LocalSocket>> allSockets() {
  const UniqueFd netlink(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  if (!netlink) return std::nullopt;
  ::setsockopt(netlink.get(), SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
  struct {
    nlmsghdr head;
    unix_diag_req request;
  } question{};
  question.head.nlmsg_len = sizeof question;
  question.head.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  question.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  question.request.sdiag_family = AF_UNIX;
  question.request.udiag_states = ~0U;
  question.request.udiag_show = UDIAG_SHOW_NAME | UDIAG_SHOW_PEER;
  if (::send(netlink.get(), &question, sizeof question, 0) != sizeof question) return std::nullopt;

  std::map<std::uint32_t, LocalSocket> sockets;
  std::vector<char> datagram(kDatagram);
  bool failed = false;
  for (bool more = true; more;) {
    const ssize_t size = ::recv(netlink.get(), datagram.data(), datagram.size(), 0);
    if (size <= 0) return std::nullopt;
    more = parseSocketList({datagram.data(), static_cast<std::size_t>(size)}, sockets, failed);
  }
  if (failed || sockets.size() >= kMostSockets) return std::nullopt;
  return sockets;
}

}  // namespace

bool parseSocketList(std::string_view datagram, std::map<std::uint32_t, LocalSocket>& sockets, bool& failed) {
  while (datagram.size() >= sizeof(nlmsghdr)) {
    const auto head = at<nlmsghdr>(datagram, 0);
    if (head.nlmsg_len < sizeof(nlmsghdr) || head.nlmsg_len > datagram.size()) break;
    if (head.nlmsg_type == NLMSG_DONE) return false;
    if (head.nlmsg_type == NLMSG_ERROR) {
      failed = true;
      return false;
    }
    parseSocket(datagram.substr(sizeof(nlmsghdr), head.nlmsg_len - sizeof(nlmsghdr)), sockets);
    datagram.remove_prefix(std::min(datagram.size(), aligned(head.nlmsg_len)));
  }
  return true;
}

std::optional<std::set<std::int32_t>> SocketDiagnosis::clients(const fs::path& socket,
                                                               const std::vector<std::int32_t>& pids) {
  std::error_code error;
  const fs::path real = fs::canonical(socket, error);
  if (error) return std::set<std::int32_t>();
  const auto sockets = allSockets();
  if (!sockets) return std::nullopt;
  // An accepted connection has its listener's name, and its peer is the client's end.
  std::set<std::uint32_t> ends;
  for (const auto& [inode, each] : *sockets) {
    if (each.peer != 0 && (each.name == real || each.name == socket)) ends.insert(each.peer);
  }
  std::set<std::int32_t> found;
  if (ends.empty()) return found;
  for (const std::int32_t pid : pids) {
    if (std::ranges::any_of(socketsOf(pid), [&](std::uint32_t inode) { return ends.contains(inode); }))
      found.insert(pid);
  }
  return found;
}

std::vector<std::uint32_t> SocketDiagnosis::socketsOf(std::int32_t pid) const {
  constexpr std::string_view kPrefix = "socket:[";
  std::vector<std::uint32_t> inodes;
  std::error_code error;
  for (fs::directory_iterator next(procRoot_ / std::to_string(pid) / "fd", error), end; !error && next != end;
       next.increment(error)) {
    std::error_code unreadable;
    const std::string target = fs::read_symlink(next->path(), unreadable).string();
    if (unreadable || !target.starts_with(kPrefix)) continue;
    std::uint32_t inode = 0;
    std::from_chars(target.data() + kPrefix.size(), target.data() + target.size(), inode);
    inodes.push_back(inode);
  }
  return inodes;
}

}  // namespace ostrel
