#include "DesktopSounds.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <mutex>
#include <optional>
#include <sys/mman.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

#include "Runtime/Failure.h"
#include "Runtime/Subprocess.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

namespace {

constexpr std::size_t kHeader = 44;              // bytes before the samples, as `AgentSounds` writes them
constexpr std::size_t kPiece = 44'100 * 2 / 50;  // a fiftieth of a second

// The sound server's own interface, of which this is all that a short sound needs.
class Pulse {
 public:
  static const Pulse* get() {
    static const Pulse pulse;
    return pulse.drain_ ? &pulse : nullptr;
  }

  // False when there is no server, or it went away.
  bool play(std::string_view samples, const std::function<bool()>& stopped) const {
    constexpr Format format{.sample = 3, .rate = 44'100, .channels = 1};
    int error = 0;
    Stream* const stream = open_(nullptr, "Ostrel", 1, nullptr, "Alert", &format, nullptr, nullptr, &error);
    if (!stream) return false;
    bool good = true;
    while (good && !samples.empty() && !stopped()) {
      const std::string_view piece = samples.substr(0, kPiece);
      good = write_(stream, piece.data(), piece.size(), &error) >= 0;
      samples.remove_prefix(piece.size());
    }
    if (good && samples.empty()) drain_(stream, &error);
    close_(stream);
    return good;
  }

 private:
  struct Stream;
  struct Format {
    int sample;  // 3: signed 16 bits, little-endian
    std::uint32_t rate;
    std::uint8_t channels;
  };
  Pulse() {
    void* const library = ::dlopen("libpulse-simple.so.0", RTLD_NOW | RTLD_LOCAL);
    if (!library) return;
    open_ = reinterpret_cast<decltype(open_)>(::dlsym(library, "pa_simple_new"));
    write_ = reinterpret_cast<decltype(write_)>(::dlsym(library, "pa_simple_write"));
    close_ = reinterpret_cast<decltype(close_)>(::dlsym(library, "pa_simple_free"));
    drain_ = reinterpret_cast<decltype(drain_)>(::dlsym(library, "pa_simple_drain"));
    if (!open_ || !write_ || !close_) drain_ = nullptr;
  }

  Stream* (*open_)(const char*, const char*, int, const char*, const char*, const Format*, const void*,
                   const void*, int*) = nullptr;
  int (*write_)(Stream*, const void*, std::size_t, int*) = nullptr;
  void (*close_)(Stream*) = nullptr;
  int (*drain_)(Stream*, int*) = nullptr;
};

bool playByProgram(const std::string& wave, const CommandLineTools& tools) {
  const UniqueFd file(::memfd_create("ostrel-sound", MFD_CLOEXEC));
  if (!file || ::write(file.get(), wave.data(), wave.size()) != static_cast<ssize_t>(wave.size()))
    return false;
  const std::string path = fmt::format("/proc/{}/fd/{}", ::getpid(), file.get());
  for (const char* name : {"pw-play", "paplay", "aplay"}) {
    const auto program = tools.find(name);
    if (!program) continue;
    try {
      constexpr std::size_t kWords = 64u << 10;  // bytes of complaints
      const auto run = Subprocess::run(program->string(), {path}, tools.environment(false),
                                       std::chrono::seconds(5), kWords);
      if (run.succeeded()) return true;
    } catch (const Failure&) {
      continue;
    }
  }
  return false;
}

}  // namespace

struct DesktopSounds::Shared {
  explicit Shared(const CommandLineTools& found) : tools(found) {}

  const CommandLineTools tools;
  std::atomic<unsigned> turn{0};  // the sound that may be heard; others break off
  std::mutex lock;                // of what follows
  std::optional<std::string> next;
  bool running = false;
  MainLoop* loop = nullptr;                        // null once the player has gone
  std::function<void(std::string_view)> complain;  // called on the main thread only
};

DesktopSounds::DesktopSounds(Ports ports) : shared_(std::make_shared<Shared>(ports.tools)) {
  shared_->loop = &ports.loop;
  shared_->complain = std::move(ports.complain);
}

DesktopSounds::~DesktopSounds() {
  ++shared_->turn;
  const std::scoped_lock guard(shared_->lock);
  shared_->next.reset();
  shared_->loop = nullptr;
}

void DesktopSounds::play(const std::string& wave) {
  ++shared_->turn;
  const std::scoped_lock guard(shared_->lock);
  shared_->next = wave;
  if (std::exchange(shared_->running, true)) return;
  try {
    std::thread(run, shared_).detach();
  } catch (const std::system_error&) {
    shared_->running = false;  // no thread to be had: no sound
  }
}

void DesktopSounds::run(const std::shared_ptr<Shared>& shared) {
  for (;;) {
    unsigned turn = 0;
    std::string wave;
    {
      const std::scoped_lock guard(shared->lock);
      shared->running = shared->next.has_value();
      if (!shared->running) return;
      wave = *std::exchange(shared->next, std::nullopt);
      turn = shared->turn;
    }
    const auto stopped = [&] { return shared->turn != turn; };
    const std::string_view samples = std::string_view(wave).substr(std::min(kHeader, wave.size()));
    const Pulse* const pulse = Pulse::get();
    if ((pulse && pulse->play(samples, stopped)) || stopped() || playByProgram(wave, shared->tools)) continue;
    const std::scoped_lock guard(shared->lock);
    if (!shared->loop) continue;
    shared->loop->post([shared] {
      if (const auto complain = std::exchange(shared->complain, {}))
        complain("no sounds: no sound server and no player was found");
    });
  }
}

}  // namespace ostrel
