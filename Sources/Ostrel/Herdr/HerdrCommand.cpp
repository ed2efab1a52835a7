#include "Herdr/HerdrCommand.h"

#include <optional>
#include <utility>

#include "Runtime/Failure.h"
#include "Runtime/Json.h"
#include "Runtime/Subprocess.h"

namespace ostrel::HerdrCommand {

namespace {

// What a failed command says itself.
std::optional<std::string> messageIn(const std::string& output) {
  const auto document = json::parse(output);
  const Json* const error = document ? json::member(*document, "error") : nullptr;
  return error && error->is_object() ? json::string(*error, "message") : std::nullopt;
}

}  // namespace

std::string run(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                const std::map<std::string, std::string>& environment, Duration limit, std::stop_token stop) {
  Subprocess::Result result =
      Subprocess::run(executable.string(), arguments, environment, limit, kLargestOutput, std::move(stop));
  if (result.succeeded()) return std::move(result.output);
  if (result.end == Subprocess::End::outputTooLong)
    throw Failure("Herdr response exceeded the local size limit.");
  if (auto message = messageIn(result.output)) throw Failure(*message);
  throw Failure("Herdr request failed. Check the selected session and installed CLI version.");
}

}  // namespace ostrel::HerdrCommand
