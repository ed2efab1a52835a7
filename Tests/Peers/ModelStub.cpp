#include "ModelStub.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <netinet/in.h>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>

#include <fmt/format.h>

#include "Runtime/Text.h"

namespace ostrel {

namespace {

std::string event(std::string_view name, const Json& data) {
  return fmt::format("event: {}\ndata: {}\n\n", name, json::dump(data));
}

std::string response(std::string_view status, std::string_view type, std::string_view body) {
  return fmt::format("HTTP/1.1 {}\r\nContent-Type: {}\r\nContent-Length: {}\r\nConnection: close\r\n\r\n{}",
                     status, type, body.size(), body);
}

std::string freshID(std::string_view prefix) {
  static std::atomic<int> next{1};
  return fmt::format("{}_{:08}", prefix, next++);
}

// The text between `opening` and "]".
std::optional<std::string> wishIn(std::string_view prompt, std::string_view opening) {
  const auto start = prompt.find(opening);
  if (start == std::string_view::npos) return std::nullopt;
  const auto end = prompt.find(']', start);
  if (end == std::string_view::npos) return std::nullopt;
  return std::string(prompt.substr(start + opening.size(), end - start - opening.size()));
}
std::optional<std::string> commandIn(std::string_view prompt) { return wishIn(prompt, "[run "); }

// A tool and its input.
struct ToolUse {
  std::string name;
  Json input;
};
std::optional<ToolUse> toolIn(std::string_view prompt) {
  if (const auto command = commandIn(prompt))
    return ToolUse{"Bash", {{"command", *command}, {"description", "Run what was asked for"}}};
  const auto start = prompt.find("[use ");
  const auto end = prompt.rfind(']');
  if (start == std::string_view::npos || end == std::string_view::npos) return std::nullopt;
  const auto words = text::words(prompt.substr(start + 5, end - start - 5), 2);
  const auto input = words.size() == 2 ? json::parse(words[1]) : std::nullopt;
  return input ? std::optional(ToolUse{std::string(words[0]), *input}) : std::nullopt;
}

// What the model is asked: the last message of the person's, and whether a tool's result came after it.
struct Question {
  std::string prompt;
  bool toolAnswered = false;
};

std::string textOf(const Json& content) {
  if (content.is_string()) return content.get<std::string>();
  std::string all;
  if (content.is_array()) {
    for (const Json& part : content) {
      if (const auto text = json::string(part, "text"); text && !text->starts_with("<system-reminder>"))
        all += *text + "\n";
    }
  }
  return all;
}

Question messagesQuestion(const Json& body) {
  Question question;
  const Json* messages = json::member(body, "messages");
  if (!messages || !messages->is_array() || messages->empty()) return question;
  for (const Json& message : *messages) {
    if (json::string(message, "role") != "user") continue;
    const Json* content = json::member(message, "content");
    if (!content) continue;
    const bool result = content->is_array() && std::ranges::any_of(*content, [](const Json& part) {
                          return json::string(part, "type") == "tool_result";
                        });
    if (result) {
      question.toolAnswered = true;
    } else if (const std::string text = textOf(*content); !text::trim(text).empty()) {
      question = {text, false};
    }
  }
  return question;
}

// What the tools of a conversation with Codex have said.
std::string resultsIn(const Json& body) {
  std::string all;
  const Json* input = json::member(body, "input");
  for (const Json& item : input ? *input : Json::array()) {
    const Json* const output = json::member(item, "output");
    if (output) all += (output->is_string() ? output->get<std::string>() : textOf(*output)) + "\n";
  }
  return all;
}

Question responsesQuestion(const Json& body) {
  Question question;
  const Json* input = json::member(body, "input");
  if (!input || !input->is_array()) return question;
  for (const Json& item : *input) {
    const auto type = json::string(item, "type");
    if (type == "function_call_output" || type == "custom_tool_call_output") {
      question.toolAnswered = true;
    } else if (json::string(item, "role") == "user") {
      if (const Json* content = json::member(item, "content")) question = {textOf(*content), false};
    }
  }
  return question;
}

std::string messagesAnswer(const Json& body, const Question& question) {
  const bool hasTools = json::member(body, "tools") && !body["tools"].empty();
  const auto tool = hasTools && !question.toolAnswered ? toolIn(question.prompt) : std::nullopt;
  const Json start{{"type", "message_start"},
                   {"message",
                    {{"id", freshID("msg")},
                     {"type", "message"},
                     {"role", "assistant"},
                     {"model", json::string(body, "model").value_or("stub")},
                     {"content", Json::array()},
                     {"stop_reason", nullptr},
                     {"stop_sequence", nullptr},
                     {"usage", {{"input_tokens", 10}, {"output_tokens", 1}}}}}};
  Json block{{"type", "text"}, {"text", ""}};
  Json delta{{"type", "text_delta"}, {"text", question.toolAnswered ? "Finished." : "Understood."}};
  if (!hasTools)
    delta["text"] = R"({"title": "Talking to a stub"})";  // the side question for a conversation's title
  if (tool) {
    block = {{"type", "tool_use"}, {"id", freshID("toolu")}, {"name", tool->name}, {"input", Json::object()}};
    delta = {{"type", "input_json_delta"}, {"partial_json", json::dump(tool->input)}};
  }
  return event("message_start", start) +
         event("content_block_start",
               {{"type", "content_block_start"}, {"index", 0}, {"content_block", block}}) +
         event("content_block_delta", {{"type", "content_block_delta"}, {"index", 0}, {"delta", delta}}) +
         event("content_block_stop", {{"type", "content_block_stop"}, {"index", 0}}) +
         event("message_delta",
               {{"type", "message_delta"},
                {"delta", {{"stop_reason", tool ? "tool_use" : "end_turn"}, {"stop_sequence", nullptr}}},
                {"usage", {{"output_tokens", 5}}}}) +
         event("message_stop", {{"type", "message_stop"}});
}

std::string responsesAnswer(const Question& question) {
  const auto command = question.toolAnswered ? std::nullopt : commandIn(question.prompt);
  const std::string id = freshID("resp");
  Json item{{"type", "message"},
            {"role", "assistant"},
            {"id", freshID("msg")},
            {"content",
             {{{"type", "output_text"}, {"text", question.toolAnswered ? "Finished." : "Understood."}}}}};
  if (command) {
    item = {{"type", "function_call"},
            {"id", freshID("fc")},
            {"call_id", freshID("call")},
            {"name", "exec_command"},
            {"arguments", json::dump({{"cmd", *command},
                                      {"sandbox_permissions", "require_escalated"},
                                      {"justification", "The test asks for it"}})}};
  }
  if (const auto file = question.toolAnswered ? std::nullopt : wishIn(question.prompt, "[patch ")) {
    const std::string patch = "*** Begin Patch\n*** Add File: " + *file + "\n+patched in\n*** End Patch";
    item = {{"type", "function_call"},
            {"id", freshID("fc")},
            {"call_id", freshID("call")},
            {"name", "exec_command"},
            {"arguments", json::dump({{"cmd", "apply_patch <<'EOF'\n" + patch + "\nEOF\n"}})}};
  }
  const bool uses = question.prompt.find("[use ") != std::string::npos && !question.toolAnswered;
  if (const auto tool = uses ? toolIn(question.prompt) : std::nullopt) {
    const auto point = tool->name.find('.');
    item = {{"type", "function_call"},
            {"id", freshID("fc")},
            {"call_id", freshID("call")},
            {"name", tool->name.substr(point == std::string::npos ? 0 : point + 1)},
            {"arguments", json::dump(tool->input)}};
    if (point != std::string::npos) item["namespace"] = tool->name.substr(0, point);
  }
  const Json usage{{"input_tokens", 10},
                   {"input_tokens_details", nullptr},
                   {"output_tokens", 5},
                   {"output_tokens_details", nullptr},
                   {"total_tokens", 15}};
  return event("response.created", {{"type", "response.created"}, {"response", {{"id", id}}}}) +
         event("response.output_item.done", {{"type", "response.output_item.done"}, {"item", item}}) +
         event("response.completed",
               {{"type", "response.completed"}, {"response", {{"id", id}, {"usage", usage}}}});
}

// One request: the head up to the empty line, and the body by its Content-Length or its chunks.
struct Request {
  std::string method;
  std::string path;
  std::string body;
};

std::optional<Request> readRequest(int fd) {
  std::string bytes;
  const auto more = [&] {
    char buffer[65536];
    const ssize_t count = ::recv(fd, buffer, sizeof buffer, 0);
    if (count > 0) bytes.append(buffer, static_cast<std::size_t>(count));
    return count > 0;
  };
  std::size_t headEnd;
  while ((headEnd = bytes.find("\r\n\r\n")) == std::string::npos) {
    if (!more()) return std::nullopt;
  }
  const std::string head = bytes.substr(0, headEnd);
  const auto lines = text::split(head, '\n');
  const auto first = text::words(lines.front());
  if (first.size() < 2) return std::nullopt;
  Request request{std::string(first[0]), std::string(first[1]), {}};
  std::size_t length = 0;
  for (const auto line : lines) {
    const std::string lower = text::lowercase(line);
    if (lower.starts_with("content-length:")) {
      length = static_cast<std::size_t>(
          text::parseInteger(text::trim(std::string_view(lower).substr(15))).value_or(0));
    }
    if (lower.starts_with("expect: 100-continue"))
      ::send(fd, "HTTP/1.1 100 Continue\r\n\r\n", 25, MSG_NOSIGNAL);
  }
  while (bytes.size() < headEnd + 4 + length) {
    if (!more()) return std::nullopt;
  }
  request.body = bytes.substr(headEnd + 4, length);
  return request;
}

void sendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

}  // namespace

ModelStub::ModelStub() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (!listener_ || ::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      ::listen(listener_.get(), 32) != 0 ||
      ::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    throw std::runtime_error("no loopback socket");
  }
  port_ = ntohs(address.sin_port);
  server_ = std::thread([this] { serve(); });
}

ModelStub::~ModelStub() {
  {
    std::lock_guard lock(mutex_);
    closing_ = true;
    for (const int fd : connections_) ::shutdown(fd, SHUT_RDWR);
  }
  changed_.notify_all();
  ::shutdown(listener_.get(), SHUT_RDWR);
  server_.join();
  for (auto& thread : threads_) thread.join();
}

void ModelStub::release() {
  {
    std::lock_guard lock(mutex_);
    released_ = true;
  }
  changed_.notify_all();
}

void ModelStub::hold() {
  std::lock_guard lock(mutex_);
  released_ = false;
}

std::vector<std::string> ModelStub::requests() {
  std::lock_guard lock(mutex_);
  return requests_;
}

bool ModelStub::wasTold(const std::string& words) {
  std::lock_guard lock(mutex_);
  return results_.find(words) != std::string::npos;
}

void ModelStub::serve() {
  for (;;) {
    const int fd = ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) return;
    std::lock_guard lock(mutex_);
    if (closing_) {
      ::close(fd);
      return;
    }
    connections_.push_back(fd);
    threads_.emplace_back([this, fd] { answer(fd); });
  }
}

void ModelStub::answer(int fd) {
  if (const auto request = readRequest(fd)) {
    {
      std::lock_guard lock(mutex_);
      requests_.push_back(request->method + " " + request->path);
    }
    sendAll(fd, replyTo(request->method, request->path, json::parse(request->body).value_or(Json::object())));
  }
  std::lock_guard lock(mutex_);
  connections_.remove(fd);
  ::close(fd);
}

void ModelStub::waitForRelease() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return released_ || closing_; });
}

std::string ModelStub::replyTo(const std::string& method, const std::string& path, const Json& body) {
  const std::string_view plain = std::string_view(path).substr(0, path.find('?'));
  if (method == "POST" && plain == "/v1/messages/count_tokens") {
    return response("200 OK", "application/json", R"({"input_tokens":10})");
  }
  if (method == "POST" && plain == "/v1/messages") {
    const Question question = messagesQuestion(body);
    if (json::member(body, "tools") && question.prompt.find("[hold]") != std::string::npos) waitForRelease();
    return response("200 OK", "text/event-stream", messagesAnswer(body, question));
  }
  if (method == "POST" && plain == "/v1/responses") {
    const Question question = responsesQuestion(body);
    {
      std::lock_guard lock(mutex_);
      results_ += resultsIn(body);
    }
    if (question.prompt.find("[hold]") != std::string::npos) waitForRelease();
    return response("200 OK", "text/event-stream", responsesAnswer(question));
  }
  return response("404 Not Found", "application/json",
                  R"({"error":{"type":"not_found_error","message":"no such path"}})");
}

}  // namespace ostrel
