// The server of one session: its panes, and a socket that answers requests and sends events.
//
// A connection takes one request: it is closed behind the answer, unless that was a subscription. Public
// methods are "ping", "events.subscribe", "pane.read" and "agent.list"; those that begin with "standin."
// belong to the stand-in's own command line, and faults don't apply to them.
//
// The last 512 events are kept. A subscription to a plain type begins with the oldest of them, one to the
// status of a pane with what comes; each is sent at most one event in a tenth of a second.
#pragma once

#include <cstdint>
#include <deque>
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

inline constexpr int kProtocol = 20;

class Server {
 public:
  // Listens on the session's socket, with the panes of the server that handed them over, if one did. Throws
  // `Failure`, also where another server listens.
  Server(StateFolder folder, std::string session);
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  // Kills the panes' programs and removes the socket, unless they were handed over.
  ~Server();

  // Serves until told to stop, a signal, the owner's end, or ten minutes without a request.
  void run();

 private:
  using ID = std::uint64_t;  // of a connection; never used twice
  struct Event {
    std::uint64_t number = 0;
    std::string type, pane, line;
  };
  struct Subscription {
    std::string type;
    std::string pane;  // for a status
    std::uint64_t next = 0;
  };
  struct Connection {
    UniqueFd fd;
    std::string in, out;
    std::vector<Subscription> subscriptions;
    bool asked = false;    // its one request has come
    bool closing = false;  // once `out` is sent
    Watch watch;
  };
  struct Request {
    ID from = 0;
    std::string method;
    Json id, params;
  };
  // The result; nothing where there is no answer.
  using Method = std::optional<Json> (Server::*)(const Request&);
  static const std::map<std::string_view, Method>& methods();

  void accept();
  void watch(ID id);
  void ready(ID id, Interest interest);
  void receive(ID id, const std::string& line);
  void reply(const Request& request, const Json& member, const std::optional<Fault>& fault);
  void transmit(ID id, const std::string& bytes);
  void later(Duration delay, MainLoop::Work work);
  void checkIdle();

  std::optional<Json> ping(const Request& request);
  std::optional<Json> subscribe(const Request& request);
  std::optional<Json> read(const Request& request);
  std::optional<Json> agents(const Request& request);
  std::optional<Json> open(const Request& request);
  std::optional<Json> report(const Request& request);
  std::optional<Json> move(const Request& request);
  std::optional<Json> close(const Request& request);
  std::optional<Json> text(const Request& request);
  std::optional<Json> handOff(const Request& request);
  std::optional<Json> stop(const Request& request);

  Pane::Events eventsOf(const std::string& id);
  void takeOver(const std::string& file);
  Pane& pane(const Json& params);
  void remove(const std::string& id, const char* event);
  void emit(const std::string& type, const std::string& pane, Json data);
  void emitStatus(const Pane& pane);
  void pump();
  bool sendNext(ID id, Subscription& subscription);

  StateFolder folder_;
  std::string session_;
  EpollLoop loop_;
  UniqueFd listener_, signals_, owner_;
  Watch listenerWatch_, signalWatch_, ownerWatch_;
  std::map<std::string, std::unique_ptr<Pane>> panes_;
  std::map<ID, Connection> connections_;
  std::map<ID, Timer> timers_;
  ID nextID_ = 1;
  std::deque<Event> events_;
  std::uint64_t nextEvent_ = 1;
  Timer pumping_;
  int panesMade_ = 0, terminalsMade_ = 0;
  bool handedOver_ = false;
  TimePoint lastRequest_;
};

}  // namespace ostrel::standin
