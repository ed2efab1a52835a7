#include "Composition/InstalledHerdr.h"

#include <utility>

#include "Herdr/HerdrCommand.h"
#include "Herdr/HerdrSocket.h"
#include "Runtime/Files.h"

namespace ostrel {

std::optional<std::filesystem::path> InstalledHerdr::find() { return tools_.find("herdr"); }

bool InstalledHerdr::isExecutable(const std::filesystem::path& path) { return files::isExecutable(path); }

std::string InstalledHerdr::run(const std::filesystem::path& executable,
                                const std::vector<std::string>& arguments, Duration limit,
                                std::stop_token stop) {
  return HerdrCommand::run(executable, arguments, environment_, limit, std::move(stop));
}

Task<Json> InstalledHerdr::request(std::string path, std::string method, Json params) {
  return HerdrSocket::request(std::move(path), std::move(method), std::move(params));
}

Task<void> InstalledHerdr::events(std::string path, Json subscriptions, std::function<void()> subscribed,
                                  std::function<void(const Json& event)> receive) {
  return HerdrSocket::events(std::move(path), std::move(subscriptions), std::move(subscribed),
                             std::move(receive));
}

Task<std::string> InstalledHerdr::read(std::string path, std::string pane, std::string source) {
  return HerdrSocket::read(std::move(path), std::move(pane), std::move(source));
}

}  // namespace ostrel
