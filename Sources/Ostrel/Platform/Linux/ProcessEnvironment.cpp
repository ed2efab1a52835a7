#include <pwd.h>
#include <unistd.h>

#include "Platform/Environment.h"

namespace ostrel {

Environment Environment::ofProcess(int argc, char** argv) {
  Environment environment;
  environment.arguments.assign(argv, argv + argc);
  for (char** entry = environ; *entry; ++entry) {
    const std::string_view pair = *entry;
    const auto equals = pair.find('=', 1);
    // The first of repeated names counts, as getenv has it.
    if (equals != std::string_view::npos)
      environment.variables.try_emplace(std::string(pair.substr(0, equals)), pair.substr(equals + 1));
  }
  const auto home = environment.variable("HOME");
  if (home && home->starts_with('/')) {
    environment.home = *home;
  } else {
    passwd entry{};
    passwd* result = nullptr;
    std::string buffer(16384, '\0');
    ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &result);
    environment.home = result && result->pw_dir ? result->pw_dir : "/";
  }
  return environment;
}

}  // namespace ostrel
