#include "Client/RequestHeading.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "Runtime/Json.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

std::string inProject(const HerdrAgent& agent) {
  const std::string project = agent.projectLabel();
  return agent.context.starts_with('/') && !project.empty() ? " in " + project : std::string();
}

bool lies(const std::filesystem::path& path, const std::filesystem::path& folder) {
  const auto normal = (folder / path).lexically_normal();
  const auto [end, rest] = std::ranges::mismatch(folder, normal);
  return end == folder.end() && rest != normal.end();
}

// Where those files are, as far as one word says it for all of them.
std::string placeOf(const std::set<std::string>& paths, const HerdrAgent& agent) {
  const std::string project = inProject(agent);
  if (project.empty() || paths.empty()) return {};
  std::filesystem::path folder = std::filesystem::path(agent.context).lexically_normal();
  if (!folder.has_filename()) folder = folder.parent_path();
  const auto inside =
      std::ranges::count_if(paths, [&](const std::string& path) { return lies(path, folder); });
  if (inside == std::ssize(paths)) return project;
  return inside == 0 ? " outside" + project.substr(3) : " in and outside" + project.substr(3);
}

std::string fileHeading(std::string_view who, std::string_view does, const std::set<std::string>& paths,
                        const HerdrAgent& agent) {
  std::string files = fmt::format("{} files", paths.size());
  if (paths.empty()) files = "files";
  if (paths.size() == 1) files = text::lastPathComponent(*paths.begin());
  return fmt::format("{} wants to {} {}{}", who, does, files, placeOf(paths, agent));
}

std::string questionHeading(std::string_view who, std::size_t count) {
  return count == 1 ? fmt::format("{} asks a question", who)
                    : fmt::format("{} asks {} questions", who, count);
}

std::string headingOf(const ClaudePermissionRequest& request, const HerdrAgent& agent) {
  constexpr std::string_view kWho = "Claude";
  if (!request.questions.empty()) return questionHeading(kWho, request.questions.size());
  const std::string& tool = request.tool;
  if (tool == "Bash") return "Claude wants to run a command" + inProject(agent);
  if (tool == "ExitPlanMode") return "Claude asks you to approve its plan";
  std::set<std::string> paths;
  for (const FileChange& change : request.changes) paths.insert(change.path);
  if (tool == "Read") paths.insert(request.detail);
  paths.erase("");
  if (!paths.empty())
    return fileHeading(kWho, tool == "Write" ? "write" : tool == "Read" ? "read" : "edit", paths, agent);
  const std::string_view first = text::prefixCharacters(request.title, 1);
  return fmt::format("{} wants to {}{}", kWho, text::lowercase(first), request.title.substr(first.size()));
}

std::string headingOfApp(const CodexRequest& request, const CodexCard& card) {
  const std::string server =
      json::string(json::parse(request.payload).value_or(Json()), "serverName").value_or("");
  const std::string_view who = server.empty() ? std::string_view("A connected app") : server;
  if (card.tool && !card.tool->name.empty())
    return fmt::format("Codex wants to use {}{}", card.tool->name, server.empty() ? "" : " of " + server);
  using Step = CodexCard::Step;
  if (card.step == Step::form && !card.fields.empty())
    return fmt::format("{} asks you to fill in a form", who);
  if (card.step == Step::link) return fmt::format("{} asks you to open a link", who);
  return fmt::format("{} asks for your answer", who);
}

std::string headingOf(const CodexAsked& asked, const HerdrAgent& agent) {
  constexpr std::string_view kWho = "Codex";
  const CodexCard& card = asked.card;
  using Subject = CodexRequest::Subject;
  switch (asked.request.subject()) {
    case Subject::command:
      return "Codex wants to run a command" + inProject(agent);
    case Subject::network:
      return "Codex wants to use the network";
    case Subject::files: {
      std::set<std::string> paths;
      for (const CodexCard::Change& change : card.changes) paths.insert(change.path);
      paths.erase("");
      return fileHeading(kWho, "edit", paths, agent);
    }
    case Subject::access:
      return "Codex wants more access";
    case Subject::questions:
      return questionHeading(kWho, card.questions.size());
    case Subject::app:
      return headingOfApp(asked.request, card);
    case Subject::other:
      break;
  }
  return "Codex needs your answer";
}

}  // namespace

std::string requestHeading(const OpenRequest& request, const HerdrAgent& agent) {
  return request.claude() ? headingOf(*request.claude(), agent) : headingOf(*request.codex(), agent);
}

}  // namespace ostrel
