// SHA-1 by its old calls: the new ones read OpenSSL's configuration and load its providers, 2 MB of code.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "Codex/CodexFrames.h"

#include <algorithm>
#include <cstring>
#include <openssl/sha.h>
#include <utility>

#include <fmt/format.h>
#include <simdjson.h>

#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel::codex {

namespace {

// Memory is taken as bytes come, whatever length a frame claims.
constexpr std::size_t kReceiveStep = 256 * 1024;

void applyMask(char* out, const char* in, std::size_t count, const FrameWriter::Mask& mask,
               std::size_t offset) {
  std::array<unsigned char, 8> twice;
  for (std::size_t i = 0; i < twice.size(); ++i) twice[i] = mask[(offset + i) % mask.size()];
  std::uint64_t word;
  std::memcpy(&word, twice.data(), sizeof word);
  std::size_t at = 0;
  for (; at + sizeof word <= count; at += sizeof word) {
    std::uint64_t value;
    std::memcpy(&value, in + at, sizeof value);
    value ^= word;
    std::memcpy(out + at, &value, sizeof value);
  }
  for (; at < count; ++at)
    out[at] = static_cast<char>(static_cast<unsigned char>(in[at]) ^ twice[at % twice.size()]);
}

}  // namespace

std::string upgradeRequest(std::string_view key) {
  return fmt::format(
      "GET / HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
      "Sec-WebSocket-Key: {}\r\nSec-WebSocket-Version: 13\r\n\r\n",
      key);
}

std::string acceptKey(std::string_view key) {
  const std::string text = std::string(key) + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
  std::array<unsigned char, SHA_DIGEST_LENGTH> digest;
  SHA_CTX sha;
  ::SHA1_Init(&sha);
  ::SHA1_Update(&sha, text.data(), text.size());
  ::SHA1_Final(digest.data(), &sha);
  return text::base64({reinterpret_cast<const char*>(digest.data()), digest.size()});
}

bool agrees(std::string_view reply, std::string_view key) {
  return reply.starts_with("HTTP/1.1 101") && reply.find(acceptKey(key)) != std::string_view::npos;
}

FrameWriter::FrameWriter(std::string_view payload, Opcode opcode, Mask mask)
    : payload_(payload), mask_(mask) {
  const auto put = [&](std::uint64_t value, int bytes) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
      header_[headerLength_++] = static_cast<char>(value >> shift);
  };
  put(0x80u | std::to_underlying(opcode), 1);
  if (payload.size() <= 125) {
    put(0x80u | payload.size(), 1);
  } else if (payload.size() <= 0xffff) {
    put(0x80u | 126, 1);
    put(payload.size(), 2);
  } else {
    put(0x80u | 127, 1);
    put(payload.size(), 8);
  }
  for (const unsigned char byte : mask_) put(byte, 1);
}

std::size_t FrameWriter::next(std::span<char> buffer) {
  std::size_t count = 0;
  if (done_ < headerLength_) {
    count = std::min(buffer.size(), headerLength_ - done_);
    std::memcpy(buffer.data(), header_.data() + done_, count);
    done_ += count;
    if (done_ < headerLength_) return count;
  }
  const std::size_t offset = done_ - headerLength_;
  const std::size_t step = std::min(buffer.size() - count, payload_.size() - offset);
  applyMask(buffer.data() + count, payload_.data() + offset, step, mask_, offset);
  done_ += step;
  return count + step;
}

std::span<char> FrameReader::space() {
  if (part_ != Part::payload) return {small_.data() + have_, want_ - have_};
  auto& [bytes, filled] = target();
  const std::size_t step = std::min(left_, kReceiveStep);
  // Not filled with zeros first: the caller writes there.
  if (bytes.size() < filled + step)
    bytes.resize_and_overwrite(filled + step, [](char*, std::size_t size) { return size; });
  return {bytes.data() + filled, step};
}

FrameReader::Event FrameReader::took(std::size_t count) {
  if (part_ == Part::payload) {
    target().filled += count;
    left_ -= count;
    return left_ == 0 ? end() : Event::none;
  }
  have_ += count;
  if (have_ < want_) return Event::none;
  have_ = 0;
  if (part_ == Part::head) {
    const auto first = static_cast<unsigned char>(small_[0]);
    const auto second = static_cast<unsigned char>(small_[1]);
    if (second & 0x80) throw Failure("Invalid masked Codex server frame.");
    opcode_ = static_cast<Opcode>(first & 0x0f);
    last_ = first & 0x80;
    if (second < 126) return begin(second);
    part_ = Part::length;
    want_ = second == 126 ? 2 : 8;
    return Event::none;
  }
  std::uint64_t length = 0;
  for (std::size_t i = 0; i < want_; ++i) length = length << 8 | static_cast<unsigned char>(small_[i]);
  return begin(length);
}

FrameReader::Event FrameReader::begin(std::uint64_t length) {
  if (length > kLargestMessage) throw Failure("Codex history response is too large.");
  if (opcode_ == Opcode::close) throw Failure("Codex closed the connection.");
  const bool control = opcode_ == Opcode::ping || opcode_ == Opcode::pong;
  if (!control && !data()) throw Failure("Unsupported Codex frame.");
  if (data() && message_.filled + length > kLargestMessage) throw Failure("Unsupported Codex frame.");
  length_ = left_ = static_cast<std::size_t>(length);
  if (control) control_ = {};
  part_ = Part::payload;
  if (length == 0) return end();
  auto& [bytes, filled] = target();
  // Address space only: its pages come as they are filled.
  bytes.reserve(filled + left_ + (data() ? simdjson::SIMDJSON_PADDING : 0));
  return Event::none;
}

FrameReader::Event FrameReader::end() {
  part_ = Part::head;
  want_ = 2;
  if (opcode_ == Opcode::ping) return Event::ping;
  if (opcode_ == Opcode::pong || !last_) return Event::none;
  if (!simdjson::validate_utf8(message_.bytes.data(), message_.filled))
    throw Failure("Codex sent a message that is not UTF-8.");
  return Event::message;
}

std::string FrameReader::Buffer::take() {
  bytes.resize(std::exchange(filled, 0));
  return std::exchange(bytes, {});
}

std::string FrameReader::takeMessage() { return message_.take(); }
std::string FrameReader::takePing() { return control_.take(); }

}  // namespace ostrel::codex
