// A server of tools for Codex (Model Context Protocol over standard input and output):
//   "echo"  says its arguments again
//   "ask"   has the person fill in a form, and says what came of it
//   "link"  the same for a step behind a link
#include <iostream>
#include <map>

#include "Runtime/Json.h"

namespace {

using ostrel::Json;
namespace json = ostrel::json;

void send(Json message) {
  message["jsonrpc"] = "2.0";
  std::cout << json::dump(message) << std::endl;
}

void say(const Json& id, const std::string& text) {
  send({{"id", id}, {"result", {{"content", {{{"type", "text"}, {"text", text}}}}}}});
}

Json tool(const char* name) {
  return {{"name", name},
          {"description", "For a test"},
          {"inputSchema", {{"type", "object"}, {"properties", Json::object()}}}};
}

const Json kForm{
    {"message", "Where to?"},
    {"requestedSchema",
     {{"type", "object"},
      {"properties", {{"city", {{"type", "string"}, {"title", "City"}}}, {"count", {{"type", "integer"}}}}},
      {"required", {"city"}}}}};
const Json kLink{
    {"mode", "url"}, {"message", "Go there"}, {"url", "https://example.org/step"}, {"elicitationId", "step"}};

}  // namespace

int main() {
  struct Open {
    Json call;
    std::string word;
  };
  std::map<int, Open> open;  // questions to the person, by their ids
  int last = 0;
  for (std::string line; std::getline(std::cin, line);) {
    const Json message = json::parse(line).value_or(Json::object());
    const auto method = json::string(message, "method");
    const Json id = message.value("id", Json());
    const Json params = message.value("params", Json::object());
    if (method == "initialize") {
      send({{"id", id},
            {"result",
             {{"protocolVersion", params["protocolVersion"]},
              {"capabilities", {{"tools", Json::object()}}},
              {"serverInfo", {{"name", "kit"}, {"version", "1"}}}}}});
    } else if (method == "tools/list") {
      send({{"id", id}, {"result", {{"tools", {tool("echo"), tool("ask"), tool("link")}}}}});
    } else if (method == "tools/call" && params["name"] == "echo") {
      say(id, "echo: " + json::dump(params.value("arguments", Json())));
    } else if (method == "tools/call") {
      const bool link = params["name"] == "link";
      open[++last] = {id, link ? "linked: " : "answered: "};
      send({{"id", last}, {"method", "elicitation/create"}, {"params", link ? kLink : kForm}});
    } else if (!method && id.is_number_integer() && open.contains(id.get<int>())) {
      const auto [call, word] = open.extract(id.get<int>()).mapped();
      say(call, word + json::dump(message.value("result", Json())));
    } else if (method && !id.is_null()) {
      send({{"id", id}, {"result", Json::object()}});
    }
  }
  return 0;
}
