#include "Herdr/HerdrCommand.h"

#include <utility>

#include "Herdr/HerdrProtocol.h"
#include "Runtime/Failure.h"
#include "Runtime/Json.h"
#include "Runtime/Subprocess.h"
#include "Runtime/Text.h"

namespace ostrel::HerdrCommand {

namespace {

// What a command that has failed says itself, as a document or as plain words.
void throwOwnWords(const std::string& output) {
  if (const auto document = json::parse(output); document && document->is_object()) {
    HerdrProtocol::result(output);
    return;
  }
  if (!text::trim(output).empty()) throw HerdrProtocol::Refusal(output);
}

}  // namespace

std::string run(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                const std::map<std::string, std::string>& environment, Duration limit, std::stop_token stop) {
  Subprocess::Result result =
      Subprocess::run(executable.string(), arguments, environment, limit, kLargestOutput, std::move(stop));
  if (result.succeeded()) return std::move(result.output);
  if (result.end == Subprocess::End::outputTooLong)
    throw Failure("Herdr response exceeded the local size limit.");
  if (result.end == Subprocess::End::exited) throwOwnWords(result.output);
  throw Failure("Herdr request failed. Check the selected session and installed CLI version.");
}

}  // namespace ostrel::HerdrCommand
