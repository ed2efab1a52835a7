// One permission prompt as Claude Code sees it: the hook's whole life, from its start with the question on
// standard input to its end with the answer printed.
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "Figures.h"
#include "Runtime/UniqueFd.h"

namespace {

using ostrel::UniqueFd;

// Answers at once whatever is asked, on a socket of its own.
class Server {
 public:
  Server() : path_("/tmp/ostrel-bench-" + std::to_string(::getpid()) + ".sock") {
    listener_.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_.get(), 16) != 0)
      throw std::runtime_error("no socket for the benchmark");
    thread_ = std::thread([this] { serve(); });
  }
  ~Server() {
    ::shutdown(listener_.get(), SHUT_RDWR);
    thread_.join();
    ::unlink(path_.c_str());
  }
  const std::string& path() const { return path_; }

 private:
  void serve() const {
    static constexpr std::string_view reply =
        R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"}})"
        "\n";
    std::string block(1 << 18, '\0');
    for (;;) {
      const UniqueFd client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!client) return;
      ssize_t count;
      do count = ::recv(client.get(), block.data(), block.size(), 0);
      while (count > 0 && block[static_cast<std::size_t>(count) - 1] != '\n');
      ::send(client.get(), reply.data(), reply.size(), MSG_NOSIGNAL);
    }
  }

  const std::string path_;
  UniqueFd listener_;
  std::thread thread_;
};

// Runs a program with `input` on its standard input; the length of its output, nothing when it failed.
std::optional<std::size_t> run(const std::string& program, int input, char** environment) {
  int output[2];
  if (::pipe2(output, O_CLOEXEC) != 0) return std::nullopt;
  const UniqueFd reader(output[0]);
  UniqueFd writer(output[1]);
  ::lseek(input, 0, SEEK_SET);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, writer.get(), STDOUT_FILENO);
  std::string name = program;
  std::string role = "--permission-hook";
  char* arguments[] = {name.data(), role.data(), nullptr};
  pid_t pid = -1;
  const int error = ::posix_spawnp(&pid, name.c_str(), &actions, nullptr, arguments, environment);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) return std::nullopt;
  writer.reset();
  char bytes[4096];
  std::size_t length = 0;
  for (ssize_t count; (count = ::read(reader.get(), bytes, sizeof bytes)) > 0;)
    length += static_cast<std::size_t>(count);
  int status = 0;
  return ::waitpid(pid, &status, 0) == pid && status == 0 ? std::optional(length) : std::nullopt;
}

// `argument` is the length of the question in bytes.
void measure(benchmark::State& state, const std::string& program, bool answers) {
  const Server server;
  std::string variable = "OSTREL_PERMISSION_SOCKET=" + server.path();
  char* environment[] = {variable.data(), nullptr};
  const UniqueFd input(::memfd_create("question", MFD_CLOEXEC));
  const std::string question(static_cast<std::size_t>(state.range(0)), 'q');
  if (::write(input.get(), question.data(), question.size()) != state.range(0)) return;
  for (auto _ : state) {
    const auto length = run(program, input.get(), environment);
    if (!length || (*length > 0) != answers) {
      state.SkipWithError("the hook failed");
      break;
    }
  }
}

std::string besideThis(const char* name) {
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / name).string();
}

void ours(benchmark::State& state) { measure(state, besideThis("Ostrel"), true); }
void bare(benchmark::State& state) { measure(state, besideThis("ostrel-bare-hook"), true); }
void nothing(benchmark::State& state) { measure(state, "/bin/true", false); }

constexpr int kUsual = 1'400;    // bytes: a question about a command
constexpr int kLarge = 661'000;  // bytes: a question about a file to be written

BENCHMARK(ours)->Name("Program/hook")->Arg(kUsual)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(bare)->Name("Program/bareHook")->Arg(kUsual)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(nothing)->Name("Program/true")->Arg(kUsual)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ours)->Name("Program/hookLarge")->Arg(kLarge)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(bare)->Name("Program/bareHookLarge")->Arg(kLarge)->Unit(benchmark::kMillisecond)->UseRealTime();

[[maybe_unused]] const bool figures =
    ostrel::bench::figure("a permission hook, start to end, to a bare static one", "Program/hook",
                          "Program/bareHook", 1.1) &&
    ostrel::bench::figure("the same to `true`, which asks nothing", "Program/hook", "Program/true", 1.0) &&
    ostrel::bench::figure("the same with 661 kB to ask, to the bare one", "Program/hookLarge",
                          "Program/bareHookLarge", 1.1);

}  // namespace
