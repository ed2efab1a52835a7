// `ostrelctl serve` over a Herdr in processes of its own.
#include <gtest/gtest.h>

#include "Peers/Herdr/HerdrStandIn.h"
#include "Peers/Serving.h"

namespace ostrel {
namespace {

TEST(Serve, ShowsAPaneTakesOperationsAndAnswersWhatItCannotDo) {
  HerdrStandIn herdr;
  herdr.start("one");
  const auto pane = herdr.open("one", {"sh", "-c", "echo on the screen; exec cat"});
  herdr.report("one", pane, {.agent = "gemini", .status = "idle"});
  Serving serve(OSTREL_BIN_DIR "/ostrelctl", herdr.environment(), herdr.home());
  EXPECT_TRUE(serve.perform({{"op", "connect"}})["ok"]);
  const Json listed = serve.until(
      "agents", [](const Json& event) { return event["herdr"]["status"] == "Connected · 1 sessions"; });
  ASSERT_TRUE(listed.is_object());
  const auto id = "3:one" + pane.id;

  ASSERT_TRUE(serve.perform({{"op", "select"}, {"agent", id}})["ok"]);
  EXPECT_TRUE(serve
                  .until("output",
                         [](const Json& event) {
                           return event["text"].get<std::string>().starts_with("on the screen");
                         })
                  .is_object());
  const auto notice =
      serve.until("transcript", [](const Json& event) { return event["notice"].is_string(); });
  EXPECT_EQ(notice["notice"],
            "Use the interactive terminal for this provider’s full conversation and controls.");
  herdr.run("one", {"pane", "send-text", pane.id, "typed"});
  EXPECT_TRUE(serve
                  .until("output",
                         [](const Json& event) {
                           return event["text"].get<std::string>().find("typed") != std::string::npos;
                         })
                  .is_object());
  herdr.setFaults(
      Json::array({{{"on", "pane.read"}, {"answer", Json::object({{"result", Json::object()}})}}}));
  EXPECT_TRUE(serve
                  .until("output",
                         [](const Json& event) {
                           return event["error"] == "This Herdr version has an unsupported output format." &&
                                  event["text"] != "";
                         })
                  .is_object());

  const std::pair<Json, const char*> refused[] = {
      {{{"op", "select"}, {"agent", "nobody"}}, "This agent is not there any more."},
      {{{"op", "answer"}, {"request", "x"}, {"decision", "allow"}}, "This request has ended."},
      {{{"op", "answer"}, {"request", "x"}, {"decision", "perhaps"}},
       "\"perhaps\" is no decision: \"allow\", \"always\" or \"deny\"."},
      {{{"op", "dance"}}, "\"dance\" is no operation."},
      {Json::object(), "\"op\" is missing."},
  };
  for (const auto& [operation, message] : refused) EXPECT_EQ(serve.perform(operation)["message"], message);
  serve.send("no object");
  EXPECT_EQ(serve.until("reply", [](const Json& reply) { return !reply.contains("id"); })["message"],
            "The line is no JSON object.");

  herdr.stop("one");
  EXPECT_TRUE(serve
                  .until(
                      "selection", [](const Json& event) { return event["agent"].is_null(); },
                      std::chrono::seconds(60))
                  .is_object());
  const auto end = serve.finish();
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.errors, "");
}

}  // namespace
}  // namespace ostrel
