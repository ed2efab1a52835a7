#include <bit>
#include <cstring>

#include "Conversations/TranscriptParser.h"

namespace ostrel {

namespace {

std::uint64_t mix(std::uint64_t k) {
  k ^= k >> 33;
  k *= 0xFF51AFD7ED558CCDu;
  k ^= k >> 33;
  k *= 0xC4CEB9FE1A85EC53u;
  return k ^ k >> 33;
}

// MurmurHash3's 128-bit form for 64-bit machines.
std::array<std::uint64_t, 2> hash128(std::string_view bytes) {
  constexpr std::uint64_t c1 = 0x87C37B91114253D5u;
  constexpr std::uint64_t c2 = 0x4CF5AD432745937Fu;
  std::uint64_t h1 = 0;
  std::uint64_t h2 = 0;
  const auto first = [&](std::uint64_t k) { h1 ^= std::rotl(k * c1, 31) * c2; };
  const auto second = [&](std::uint64_t k) { h2 ^= std::rotl(k * c2, 33) * c1; };
  const std::uint64_t length = bytes.size();
  std::uint64_t block[2];
  for (; bytes.size() >= sizeof block; bytes.remove_prefix(sizeof block)) {
    std::memcpy(block, bytes.data(), sizeof block);
    first(block[0]);
    h1 = (std::rotl(h1, 27) + h2) * 5 + 0x52DCE729;
    second(block[1]);
    h2 = (std::rotl(h2, 31) + h1) * 5 + 0x38495AB5;
  }
  block[0] = block[1] = 0;
  if (!bytes.empty()) std::memcpy(block, bytes.data(), bytes.size());
  first(block[0]);
  second(block[1]);
  h1 ^= length;
  h2 ^= length;
  h1 += h2;
  h2 += h1;
  h1 = mix(h1);
  h2 = mix(h2);
  h1 += h2;
  h2 += h1;
  return {h1, h2};
}

}  // namespace

std::string& LatestMessages::append(std::string_view id, std::string_view role,
                                    std::optional<std::string_view> timestamp) {
  AgentTranscriptMessage* slot = nullptr;
  if (slots_.size() < kLimit) {
    slot = &slots_.emplace_back();
  } else {
    slot = &slots_[first_];
    first_ = (first_ + 1) % kLimit;
  }
  slot->id.assign(id);
  slot->role.assign(role);
  slot->timestamp = timestamp;
  return slot->text;
}

bool MessageIds::insert(std::string_view id) {
  if (4 * (count_ + 1) > 3 * table_.size()) {
    std::vector<Hash> old(std::max<std::size_t>(64, 2 * table_.size()));
    old.swap(table_);
    for (const Hash& hash : old)
      if (hash != Hash{}) place(hash);
  }
  Hash hash = hash128(id);
  if (hash == Hash{}) hash[0] = 1;
  for (std::size_t i = hash[0];; ++i) {
    Hash& slot = table_[i & (table_.size() - 1)];
    if (slot == hash) return false;
    if (slot != Hash{}) continue;
    slot = hash;
    ++count_;
    return true;
  }
}

void MessageIds::place(const Hash& hash) {
  std::size_t i = hash[0] & (table_.size() - 1);
  while (table_[i] != Hash{}) i = (i + 1) & (table_.size() - 1);
  table_[i] = hash;
}

AgentTranscriptSnapshot AgentTranscript::ParseState::snapshot() const {
  AgentTranscriptSnapshot result;
  result.messages.reserve(messages.size());
  for (std::size_t i = 0; i < messages.size(); ++i) result.messages.push_back(messages[i]);
  result.details = details;
  return result;
}

}  // namespace ostrel
