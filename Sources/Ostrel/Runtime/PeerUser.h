// Whether the program at the other end of a Unix socket runs as our user. A socket's name can be taken by
// somebody else (a folder below the temporary folder after a restart, say), so both ends ask before they say
// or believe a word. Any thread.
//
// The launcher includes this header and links nothing of the core: no heap, no exceptions, no streams here.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

namespace ostrel {

// `fd` is a connected socket: of a client, the peer is whoever listens; of an accepted one, whoever
// connected. False too where the kernel does not tell.
inline bool isOurUser(int fd) {
  ucred peer{};
  socklen_t length = sizeof peer;
  return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 && peer.uid == ::geteuid();
}

}  // namespace ostrel
