// The folder that a stand-in Herdr keeps its state in, shared by its command line, its session servers and
// the tests. Any process, any thread; everything is read anew at each use.
//
//   sessions/NAME/socket   the socket of a session; the folder stays when the session has stopped
//   sessions/NAME/log      what the server wrote on its standard error
//   sessions/NAME/pid      the process that serves it
//   integrations.json      target to state, for what is not "not installed"
//   faults.json            see `Fault`
//   commands.log           one line for each command run and each public request served
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Runtime/Json.h"
#include "Runtime/UniqueFd.h"

namespace ostrel::standin {

// What goes wrong with a command ("agent list") or a socket method ("pane.read"). faults.json is a list of
// objects {"on": ..., "session": ... (every one when absent)} with some of these members; the first that fits
// applies.
struct Fault {
  bool silence = false;        // never answers; a command with an answer gives that and hangs then
  std::optional<Json> answer;  // in place of the true answer; text stands as it is, anything else as JSON
  std::optional<int> exit;     // a command's exit status
  bool oversize = false;       // 8,000,100 bytes without a line feed

  // The bytes to send in place of `answer`.
  std::string applied(std::string answer) const;
};

class StateFolder {
 public:
  // Named by STANDIN_HERDR_HOME. Throws `Failure` when it is not set.
  static StateFolder fromEnvironment();
  explicit StateFolder(std::filesystem::path path) : path_(std::move(path)) {}

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path session(std::string_view name) const { return path_ / "sessions" / name; }
  std::string socket(std::string_view name) const { return (session(name) / "socket").string(); }
  // The sessions that ever ran, sorted.
  std::vector<std::string> sessions() const;

  // A JSON file; `otherwise` when it is missing or broken.
  Json read(std::string_view name, Json otherwise) const;
  void write(std::string_view name, const Json& value) const;

  std::optional<Fault> fault(std::string_view on, std::string_view session) const;
  void log(std::string_view line) const;

 private:
  std::filesystem::path path_;
};

// Readable when the process named by STANDIN_HERDR_OWNER has ended: nothing of the stand-in outlives the test
// that uses it. Empty without that variable. Throws `Failure` when it has ended already.
UniqueFd ownerDescriptor();

}  // namespace ostrel::standin
