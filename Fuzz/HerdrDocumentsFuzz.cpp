// Herdr's documents, events and integration status: any bytes give complete data or a failure in words.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Herdr/HerdrEvents.h"
#include "Herdr/HerdrIntegrations.h"
#include "Herdr/HerdrProtocol.h"
#include "Runtime/Failure.h"

namespace {

template <class Decode>
void attempt(Decode decode) {
  try {
    decode();
  } catch (const ostrel::Failure& failure) {
    if (failure.message().empty()) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ostrel;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  attempt([&] { HerdrProtocol::sessions(bytes); });
  attempt([&] {
    for (const HerdrAgent& agent : HerdrProtocol::agents(bytes, "s", {})) {
      if (agent.paneID.empty() || agent.provider.data() == nullptr) std::abort();
    }
  });
  attempt([&] { HerdrProtocol::output(bytes); });
  attempt([&] { HerdrProtocol::sockets(bytes); });
  HerdrAgent known;
  known.paneID = "w1:p1";
  if (const auto event = json::parse(bytes)) HerdrEvents::isNews(*event, std::span(&known, 1));
  attempt([&] {
    if (HerdrIntegration::parse(bytes).empty()) std::abort();
  });
  return 0;
}
