// The part of RFC 6455 that a client of Codex's app server needs: the upgrade, frames on the way out, frames
// on the way in. Pure over bytes: `CodexLocalServer::Connection` moves them.
//
// Both directions work in steps, so that a message of megabytes is masked in the cache and received where it
// will stand. One user at a time, any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace ostrel::codex {

// The longest frame and the longest message, in bytes of payload.
inline constexpr std::size_t kLargestMessage = 16'000'000;
// The upgrade's answer, in bytes.
inline constexpr std::size_t kLargestUpgrade = 8192;

// What the client sends first. `key` is the base64 of 16 random bytes.
std::string upgradeRequest(std::string_view key);
// What proves that the other end read `key`.
std::string acceptKey(std::string_view key);
// Whether `reply`, up to and with its empty line, agrees to the upgrade.
bool agrees(std::string_view reply, std::string_view key);

enum class Opcode : std::uint8_t { continuation = 0, text = 1, binary = 2, close = 8, ping = 9, pong = 10 };

// One frame on the way out: whole (FIN set) and masked, as a client's must be. `payload` must outlive it.
class FrameWriter {
 public:
  static constexpr std::size_t kStep = 128 * 1024;  // stays in the second-level cache
  using Mask = std::array<unsigned char, 4>;

  FrameWriter(std::string_view payload, Opcode opcode, Mask mask);
  // Fills `buffer` with the next bytes of the wire and returns how many; 0 at the end.
  std::size_t next(std::span<char> buffer);

 private:
  std::string_view payload_;
  Mask mask_;
  std::array<char, 14> header_;
  std::size_t headerLength_ = 0;
  std::size_t done_ = 0;  // bytes of the wire given out
};

// Frames on the way in, put together to messages. The caller fills `space()` or a part of it and says how
// much. Nothing is asked for beyond the frame that is being read, so a descriptor is readable exactly when
// more of the wire waits. After a failure it is of no more use.
class FrameReader {
 public:
  enum class Event : std::uint8_t {
    none,     // more bytes are needed
    message,  // `takeMessage` has it
    ping,     // `takePing` has what is to be sent back
  };

  // Where the next bytes belong; never empty.
  std::span<char> space();
  // Throws `Failure`, before memory is taken, for what a server must not send and for too much of it; and
  // for a close.
  Event took(std::size_t count);
  // Nothing of the frame's current part (head, length, payload) has come yet.
  bool atPart() const { return part_ == Part::payload ? left_ == length_ : have_ == 0; }
  // Between two messages: nothing of a next one has come.
  bool atStart() const { return part_ == Part::head && have_ == 0 && message_.filled == 0; }

  // UTF-8, with room behind it for a parser that reads ahead.
  std::string takeMessage();
  std::string takePing();

 private:
  enum class Part : std::uint8_t { head, length, payload };
  struct Buffer {
    std::string bytes;
    std::size_t filled = 0;
    std::string take();
  };
  bool data() const { return opcode_ == Opcode::text || opcode_ == Opcode::continuation; }
  Buffer& target() { return data() ? message_ : control_; }
  Event begin(std::uint64_t length);
  Event end();

  Part part_ = Part::head;
  std::array<char, 8> small_{};  // the head, then the length
  std::size_t have_ = 0;
  std::size_t want_ = 2;
  Opcode opcode_ = Opcode::continuation;
  bool last_ = false;
  std::size_t length_ = 0;
  std::size_t left_ = 0;
  Buffer message_;
  Buffer control_;
};

}  // namespace ostrel::codex
