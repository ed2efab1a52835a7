// The launcher: what the command `Ostrel`, the desktop entry and the hook of Claude Code run.
//
// Claude Code waits for a hook, so this is a small static program that plays that role by itself. In every
// other role it becomes the desktop program, which lies beside it in libexec/ and has the same name, so
// that running copies recognise each other.
#include <cerrno>
#include <climits>
#include <cstring>
#include <unistd.h>

#include "PermissionHook.h"

namespace {

constexpr int kNotStarted = 127;  // as a shell has it for a program that can't be run
constexpr char kHookRole[] = "--permission-hook";
constexpr char kDesktopProgram[] = "/libexec/Ostrel";

bool isFixture(int argc, char** argv) {
  for (int i = 0; i < argc; ++i) {
    if (std::strncmp(argv[i], "--check-", 8) == 0 || std::strncmp(argv[i], "--snapshot", 10) == 0)
      return true;
  }
  return false;
}

void cutLastComponent(char* path) {
  if (char* slash = std::strrchr(path, '/')) *slash = '\0';
}

int fail(const char* path) {
  const char* const words[] = {"Ostrel: could not start ", path, ": ", std::strerror(errno), "\n"};
  char line[PATH_MAX + 256] = "";
  for (const char* word : words) std::strncat(line, word, sizeof line - std::strlen(line) - 1);
  const ssize_t written = ::write(STDERR_FILENO, line, std::strlen(line));
  static_cast<void>(written);  // nobody else to tell
  return kNotStarted;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], kHookRole) == 0) return runHook(isFixture(argc, argv));
  }
  // <prefix>/bin/Ostrel, wherever that is installed and whatever link it was called by.
  char path[PATH_MAX + sizeof kDesktopProgram];  // with room for the program's name
  const ssize_t length = ::readlink("/proc/self/exe", path, PATH_MAX - 1);
  if (length < 0) return fail("/proc/self/exe");
  path[length] = '\0';
  cutLastComponent(path);
  cutLastComponent(path);
  std::memcpy(path + std::strlen(path), kDesktopProgram, sizeof kDesktopProgram);
  ::execv(path, argv);
  return fail(path);
}
