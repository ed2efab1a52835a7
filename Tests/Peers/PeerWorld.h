// A clean world for real agents: a home folder of their own, dummy keys, only loopback to talk to, terminals
// in tmux.
//
// OSTREL_BIN names the folder with our programs, OSTREL_PEERS the one that `Tests/Peers/prepare` filled.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ModelStub.h"
#include "Runtime/Json.h"
#include "Support/ChildProcess.h"

namespace ostrel {

class PeerWorld {
 public:
  PeerWorld();
  PeerWorld(const PeerWorld&) = delete;
  PeerWorld& operator=(const PeerWorld&) = delete;
  ~PeerWorld();

  ModelStub& model() { return model_; }
  const std::filesystem::path& home() const { return home_; }
  // A folder that both agents trust, "<home>/<name>". Call before the agents start.
  std::filesystem::path project(const std::string& name);
  ChildProcess::Variables variables() const;
  std::vector<std::string> claude() const;
  std::vector<std::string> codex() const;
  std::string ostrelctl() const;

  // The agents of `folder`, as `ostrelctl agents --json` lists them now.
  std::vector<Json> agentsIn(const std::filesystem::path& folder) const;

 private:
  void configure();

  ModelStub model_;
  std::filesystem::path peers_;
  std::filesystem::path home_;
  std::vector<std::filesystem::path> projects_;
};

// A terminal in which one program runs: a tmux server of its own, ended with the object.
class Terminal {
 public:
  Terminal(const PeerWorld& world, const std::filesystem::path& folder,
           const std::vector<std::string>& command);
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal();

  std::string screen() const;
  void key(const std::string& name) const;
  // Types the text, lets the program take it in, and presses Enter.
  void submit(const std::string& text) const;

 private:
  std::vector<std::string> tmux(std::vector<std::string> words) const;
  std::filesystem::path socket_;
  ChildProcess::Variables variables_;
};

// Looks every tenth of a second until `condition` holds; false when `limit` passes first.
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds limit = std::chrono::seconds(40));

}  // namespace ostrel
