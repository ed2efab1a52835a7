// The server of one session: its panes, and a socket that answers requests and sends events.
//
// Public methods are "ping", "events.subscribe" and "pane.read"; those that begin with "standin." belong to
// the stand-in's own command line, and faults don't apply to them. A connection that was attached to a
// terminal ("standin.attach") carries stream records from then on instead of requests.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Pane.h"
#include "Runtime/EpollLoop.h"
#include "Runtime/Json.h"
#include "Runtime/UniqueFd.h"
#include "StateFolder.h"

namespace ostrel::standin {

inline constexpr int kProtocol = 12;

class Server {
 public:
  // Listens on the session's socket. Throws `Failure`, also where another server does already.
  Server(StateFolder folder, std::string session);
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  // Kills the panes' programs and removes the socket.
  ~Server();

  // Serves until told to stop, a signal, the owner's end, or ten minutes without a request.
  void run();

 private:
  using ID = std::uint64_t;  // of a connection; never used twice
  struct Connection {
    UniqueFd fd;
    std::string in, out;
    Json subscriptions = Json::array();
    std::string attached;  // a terminal's id
    bool closing = false;  // once `out` is sent
    Watch watch;
  };
  struct Request {
    ID from = 0;
    std::string session, method;
    Json id, params;
  };
  // The result; nothing where it follows later through `reply`.
  using Method = std::optional<Json> (Server::*)(const Request&);
  static const std::map<std::string_view, Method>& methods();

  void accept();
  void watch(ID id);
  void ready(ID id, Interest interest);
  void receive(ID id, const std::string& line);
  void reply(const Request& request, const Json& member, const std::optional<Fault>& fault = {});
  void transmit(ID id, std::string bytes, const std::optional<Fault>& fault = {});
  void later(Duration delay, MainLoop::Work work);
  void checkIdle();

  std::optional<Json> ping(const Request& request);
  std::optional<Json> subscribe(const Request& request);
  std::optional<Json> read(const Request& request);
  std::optional<Json> agents(const Request& request);
  std::optional<Json> open(const Request& request);
  std::optional<Json> workspace(const Request& request);
  std::optional<Json> report(const Request& request);
  std::optional<Json> move(const Request& request);
  std::optional<Json> close(const Request& request);
  std::optional<Json> prompt(const Request& request);
  std::optional<Json> text(const Request& request);
  std::optional<Json> keys(const Request& request);
  std::optional<Json> start(const Request& request);
  std::optional<Json> attach(const Request& request);
  std::optional<Json> stop(const Request& request);

  Pane& add(const Json& params, std::string workspace);
  Pane& pane(const Json& params);
  Pane* paneOfTerminal(std::string_view terminal);
  void remove(const std::string& id, const char* event);
  void detected(Pane& pane, const std::string& agent, const std::string& status);
  void awaitAgent(const Request& request, const std::string& executable, TimePoint end);
  void emit(std::string_view event, const std::string& pane);
  void stream(ID id, const Json& record);
  Json frame(Pane& pane, std::string_view bytes) const;
  void toAttached(const std::string& terminal, const Json& record, bool last = false);

  StateFolder folder_;
  std::string session_;
  EpollLoop loop_;
  UniqueFd listener_, signals_, owner_;
  Watch listenerWatch_, signalWatch_, ownerWatch_;
  std::map<std::string, std::unique_ptr<Pane>> panes_;
  std::map<ID, Connection> connections_;
  std::map<ID, Timer> timers_;
  ID nextID_ = 1;
  int panesMade_ = 0, terminalsMade_ = 0, workspacesMade_ = 0;
  TimePoint lastRequest_;
};

}  // namespace ostrel::standin
