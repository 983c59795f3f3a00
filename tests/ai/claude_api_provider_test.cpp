// The Claude API engine against a loopback fake Anthropic server replaying recorded event
// streams and error bodies: the request as the server received it, the progress lines, the
// usage, the ledger entry and the exact failure texts. Whole runs through the binary are in
// tests/cli/analyze_claude_api_test.cpp.
#include "ai/ai_error.h"
#include "ai/analysis_schema.h"
#include "ai/analysis_stream.h"
#include "ai/claude_api_provider.h"
#include "ai/engine_registry.h"
#include "ai/image_loading.h"
#include "base/http.h"
#include "base/json.h"
#include "base/secrets.h"
#include "base/settings.h"
#include "cost/cost_ledger.h"
#include "support/fake_server.h"
#include "support/test_support.h"

#include <gtest/gtest.h>

namespace quillora::testing {
namespace {

using ai::AIError;
using ai::ClaudeAPIProvider;
using base::Json;

class ClaudeAPI : public ::testing::Test {
protected:
  FakeServer server;
  TempDir home;
  std::vector<std::string> progress;
  std::shared_ptr<cost::UsageMeter> meter = std::make_shared<cost::UsageMeter>();
  std::shared_ptr<cost::CostLedger> ledger = std::make_shared<cost::CostLedger>(home.path());

  ClaudeAPIProvider provider(const std::string& baseURL = "") {
    ClaudeAPIProvider p(
        "sk-ant-test-key", "claude-opus-5-5", 32000,
        [this](const std::string& line) { progress.push_back(line); }, meter,
        baseURL.empty() ? server.url() : baseURL);
    p.recording.ledger = ledger;
    p.recording.prices = cost::PriceTable();
    return p;
  }

  static ai::StructuredPrompt prompt() {
    ai::StructuredPrompt p;
    p.system = "You analyse crashes.\n\n# Quillora output contract";
    p.user = "Analyze this production crash and propose a fix.\n\n<crash_summary>\nNRE";
    p.schema = std::string(ai::fixAnalysisSchema());
    p.schemaName = std::string(ai::kFixAnalysisSchemaName);
    p.labels = ai::analysisProgressLabels("Claude API is writing the analysis");
    return p;
  }

  void replay(const std::string& fixtureName) {
    server.respond("POST", "/v1/messages",
                   recordedEventStream(fixture("anthropic/" + fixtureName)));
  }

  // The text of the AIError or HTTPError that `call` throws.
  template <typename Call> static std::string failureOf(Call&& call) {
    try {
      call();
    } catch (const AIError& e) {
      return e.what();
    } catch (const base::HTTPError& e) {
      return e.what();
    }
    return "(no error)";
  }
};

TEST_F(ClaudeAPI, SendsOneStreamedRequestAndDecodesMetersAndRecordsItsAnswer) {
  replay("derived_fix_analysis_with_thinking.sse");
  auto png = home.write("shots/menu.png", std::string("\x89PNG\r\n\x1a\n\0\0", 10));
  home.write("shots/frame 1.bin", "\xFF\xD8\xFF\xE0rest");
  auto unknown = home.write("shots/notes.dat", "abc");
  auto p = provider();
  auto analysis = p.analyze(prompt(), {{"file://" + png.string(), "Menu"},
                                       {"file://" + home.path().string() + "/shots/frame%201.bin", "Frame"},
                                       {unknown.string(), "Unknown"}});

  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  const auto& r = requests[0];
  EXPECT_EQ(r.method, "POST");
  EXPECT_EQ(r.target, "/v1/messages");
  EXPECT_EQ(r.header("x-api-key"), "sk-ant-test-key");
  EXPECT_EQ(r.header("anthropic-version"), "2023-06-01");
  EXPECT_EQ(r.header("content-type"), "application/json");
  EXPECT_EQ(r.header("accept"), "text/event-stream");

  // The schema text goes out as it stands, layout and key order included.
  EXPECT_NE(r.body.find(R"("schema":)" + std::string(ai::fixAnalysisSchema())), std::string::npos);
  EXPECT_EQ(r.body.find("__QUILLORA_SCHEMA__"), std::string::npos);
  Json expected = Json::parse(R"({
    "model": "claude-opus-5-5",
    "max_tokens": 32000,
    "stream": true,
    "system": "You analyse crashes.\n\n# Quillora output contract",
    "messages": [{"role": "user", "content": [
      {"type": "text", "text": "Analyze this production crash and propose a fix.\n\n<crash_summary>\nNRE"},
      {"type": "image", "source": {"type": "base64", "media_type": "image/png", "data": "iVBORw0KGgoAAA=="}},
      {"type": "image", "source": {"type": "base64", "media_type": "image/jpeg", "data": "/9j/4HJlc3Q="}},
      {"type": "image", "source": {"type": "base64", "media_type": "image/jpeg", "data": "YWJj"}}
    ]}],
    "output_config": {"format": {"type": "json_schema", "schema": null}}
  })");
  expected["output_config"]["format"]["schema"] = Json::parse(ai::fixAnalysisSchema());
  EXPECT_EQ(Json::parse(r.body), expected);
  EXPECT_EQ(ai::imageMimeType(std::string_view("RIFF\x10\0\0\0WEBPVP8 ", 16), "x"), "image/webp");
  EXPECT_EQ(ai::imageMimeType("", "A.JPEG"), "image/jpeg");

  EXPECT_EQ(analysis.title,
            "NullReferenceException in `InventoryPanel.Refresh()` when the save has no items");
  EXPECT_EQ(analysis.patch.rfind("diff --git a/Assets/Scripts/UI/InventoryPanel.cs", 0), 0u);
  // Two thinking blocks, one thinking line.
  EXPECT_EQ(progress, (std::vector<std::string>{
                          "Claude API is thinking through the crash…",
                          "Claude API is writing the analysis",
                          "Title: NullReferenceException in `InventoryPanel.Refresh()` when the "
                          "save has no items",
                          "Explaining the root cause",
                          "Quoting the code that crashes",
                          "Describing the fix",
                          "Writing the code changes",
                          "Writing repro steps for QA",
                          "Listing the files to change",
                          "Building the patch",
                          "Listing how to verify the fix",
                      }));

  // message_start carries the prompt counts, message_delta the final output count.
  ASSERT_TRUE(p.lastCall());
  const auto& usage = p.lastCall()->usage;
  EXPECT_EQ(usage.backend, "claude-api");
  EXPECT_EQ(usage.inputTokens, 1520);
  EXPECT_EQ(usage.outputTokens, 452);
  EXPECT_EQ(usage.cacheReadTokens, 3000);
  EXPECT_EQ(usage.cacheWriteTokens, 200);
  EXPECT_GT(usage.duration, 0.0);
  EXPECT_EQ(meter->usage("claude-api", "claude-opus-5-5", 1.0).value().outputTokens, 452);

  auto entries = ledger->entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].kind, "analysis");
  EXPECT_FALSE(entries[0].failed);
  EXPECT_EQ(entries[0].usage, usage);
  // 1520 × $4 + 452 × $20 + 3000 × $0.2 + 200 × $5 per million tokens.
  EXPECT_NEAR(entries[0].costUSD.value(), 0.01672, 1e-12);

  // A picture that can't be read stops the call before anything is sent.
  auto missing = home.path() / "shots" / "gone.png";
  EXPECT_EQ(failureOf([&] { provider().analyze(prompt(), {{missing.string(), "Gone"}}); }),
            "Couldn't read the picture " + missing.string() + ": No such file or directory.");
  EXPECT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(ledger->entries().size(), 1u);
}

// A stream built from a file under tests/fixtures/anthropic or given as it is sent.
FakeResponse eventStream(const std::string& source) {
  if (source.find("data:") == std::string::npos)
    return recordedEventStream(fixture("anthropic/" + source));
  FakeResponse response;
  response.contentType = "text/event-stream";
  response.chunked = true;
  response.body = source;
  return response;
}

TEST_F(ClaudeAPI, AnswersThatYieldNoAnalysisFailWithTheTextsOfTheFailureTableAndAreRecorded) {
  const std::string writing = "Claude API is writing the analysis";
  const std::string notJSON = "Couldn't read the AI's response: not JSON";
  const std::string cutOff = "The response was cut off before it finished. Try again, pick a "
                             "larger model, or use Claude Code mode for large fixes.";
  const std::string checkKey = "Check the API key in Settings → AI.";
  FakeResponse html = jsonResponse(502, "<html><body>502 Bad Gateway</body></html>");
  html.contentType = "text/html";
  struct Case {
    FakeResponse response;
    std::string message;
    AIError::Case errorCase;
    int status;
    std::vector<std::string> progress;
    long long inputTokens, outputTokens;
  };
  using enum AIError::Case;
  const std::vector<Case> cases = {
      {eventStream("sdkpy_basic_response.sse"), notJSON, badResponse, 0, {writing}, 11, 6},
      {eventStream("issue_litellm4562_midstream_api_error.sse"),
       "Claude API error: Internal server error", http, 0, {writing}, 0, 0},
      {eventStream("sdkpy_refusal_response.sse"), "Claude declined to answer this request.",
       refusal, 0, {}, 20, 0},
      // A refusal without any content is still a refusal, not an empty answer.
      {eventStream("vercel_refusal.chunks.jsonl"), "Claude declined to answer this request.",
       refusal, 0, {}, 18, 5},
      // Complete JSON that stopped at max_tokens is not trusted.
      {eventStream("derived_max_tokens.chunks.jsonl"), cutOff, truncated, 0, {writing}, 313, 305},
      {eventStream(
           "data: {\"type\":\"message_start\",\"message\":{\"usage\":{\"input_tokens\":7}}}\n"
           "data: {\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\","
           "\"text\":\"{\\\"title\\\":\\\"x\\\"}\"}}\n"
           "data: {\"type\":\"message_delta\",\"delta\":{\"stop_reason\":"
           "\"model_context_window_exceeded\"},\"usage\":{\"output_tokens\":3}}\n"),
       cutOff, truncated, 0, {writing, "Title: x"}, 7, 3},
      {eventStream("data: {\"type\":\"message_start\",\"message\":{\"usage\":{\"input_tokens\":9,"
                   "\"output_tokens\":1}}}\n\n"
                   "data: {\"type\":\"message_delta\",\"delta\":{\"stop_reason\":\"end_turn\"},"
                   "\"usage\":{\"output_tokens\":2}}\n\n"),
       "Couldn't read the AI's response: empty response", badResponse, 0, {}, 9, 2},
      {eventStream("event: error\ndata: {\"type\":\"error\",\"error\":{\"type\":\"overloaded_error\"}}\n\n"),
       "Claude API error: stream error", http, 0, {}, 0, 0},
      // Unparsable data lines and everything after [DONE] are ignored.
      {eventStream("data: not json at all\n: a comment line\n"
                   "data:{\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\","
                   "\"text\":\"Hi\"}}\ndata: [DONE]\n"
                   "data: {\"type\":\"error\",\"error\":{\"message\":\"after the end\"}}\n"),
       notJSON, badResponse, 0, {writing}, 0, 0},
      {jsonResponse(401, R"({"type":"error","error":{"type":"authentication_error","message":"invalid x-api-key"}})"),
       checkKey, http, 401, {}, 0, 0},
      {jsonResponse(403, R"({"type":"error","error":{"type":"permission_error","message":"no access"}})"),
       checkKey, http, 403, {}, 0, 0},
      {jsonResponse(404, R"({"type":"error","error":{"type":"not_found_error","message":"model: claude-x"}})"),
       "Check the model name in Settings → AI.", http, 404, {}, 0, 0},
      {jsonResponse(429, R"({"type":"error","error":{"type":"rate_limit_error","message":"slow down"}})"),
       "You've hit a rate limit or run out of credit; wait a bit or check your plan.", http, 429,
       {}, 0, 0},
      {jsonResponse(400, readText(fixture("anthropic/issue_aibridge56_http400_prompt_too_long.json"))),
       "Anthropic error 400: prompt is too long: 205351 tokens > 200000 maximum", http, 400, {}, 0, 0},
      {jsonResponse(529, R"({"type":"error","error":{"details":null,"type":"overloaded_error","message":"Overloaded"},"request_id":"req_011Ce3HwQb6vtbs9LQVmh4oe"})"),
       "Anthropic error 529: Overloaded", http, 529, {}, 0, 0},
      {html, "Anthropic error 502: no details", http, 502, {}, 0, 0},
      {jsonResponse(500, R"({"type":"error"})"), "Anthropic error 500: no details", http, 500, {}, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    FakeServer caseServer;
    caseServer.respond("POST", "/v1/messages", c.response);
    progress.clear();
    auto before = ledger->entries().size();
    auto p = provider(caseServer.url());
    try {
      p.analyze(prompt(), {});
      ADD_FAILURE() << "no error";
    } catch (const AIError& e) {
      EXPECT_EQ(e.what(), c.message);
      EXPECT_EQ(e.errorCase(), c.errorCase);
      EXPECT_EQ(e.status(), c.status);
    }
    EXPECT_EQ(progress, c.progress);
    ASSERT_TRUE(p.lastCall());
    EXPECT_TRUE(p.lastCall()->failed);
    EXPECT_EQ(p.lastCall()->usage.inputTokens, c.inputTokens);
    EXPECT_EQ(p.lastCall()->usage.outputTokens, c.outputTokens);
    auto entries = ledger->entries();
    ASSERT_EQ(entries.size(), before + 1);
    EXPECT_TRUE(entries.back().failed);
    EXPECT_EQ(entries.back().usage.inputTokens, c.inputTokens);
  }
}

// The binary's tests see the text and the ledger line; the tokens counted so far are seen here.
TEST_F(ClaudeAPI, ABrokenTransferIsAFailedCallWithTheTokensSoFar) {
  FakeResponse cut =
      recordedEventStream(fixture("anthropic/derived_fix_analysis_with_thinking.sse"));
  cut.cutOffAfter = cut.body.find("event: content_block_start");
  server.respond("POST", "/v1/messages", cut);
  auto p = provider();
  EXPECT_EQ(failureOf([&] { p.analyze(prompt(), {}); }),
            "Couldn't reach 127.0.0.1: the connection closed before the response was complete");
  ASSERT_TRUE(p.lastCall());
  EXPECT_TRUE(p.lastCall()->failed);
  EXPECT_EQ(p.lastCall()->usage.inputTokens, 1520);
  ASSERT_EQ(ledger->entries().size(), 1u);
  EXPECT_TRUE(ledger->entries()[0].failed);
}

TEST_F(ClaudeAPI, NothingIsSentOrRecordedWhenTheRequestCantGoOut) {
  auto p = provider();
  auto bad = prompt();
  bad.schema = "{\"type\": \"object\",";
  EXPECT_EQ(failureOf([&] { p.analyze(bad, {}); }),
            "The JSON schema for this request isn't valid JSON.");
  EXPECT_EQ(failureOf([&] { provider("http://api.example.com").analyze(prompt(), {}); }),
            "Refusing to send an API key to api.example.com over plain http; use an https "
            "address (only loopback addresses may use http).");
  for (const std::string key : {"", "  \n"}) {
    try {
      ClaudeAPIProvider(key, "claude-opus-5-5", 32000, nullptr, meter, server.url());
      ADD_FAILURE() << "no error";
    } catch (const AIError& e) {
      EXPECT_STREQ(e.what(), "Add your Anthropic API key in Settings → AI, or pick another "
                             "engine in the toolbar.");
      EXPECT_EQ(e.errorCase(), AIError::Case::missingAPIKey);
    }
  }
  EXPECT_TRUE(server.requests().empty());
  EXPECT_TRUE(ledger->entries().empty());
  EXPECT_FALSE(p.lastCall());
}

// The binary's tests take the key from the environment and the default model.
TEST_F(ClaudeAPI, TheRegistryTakesKeyModelAndHostFromTheSettings) {
  base::setSecretsFromEnvironment(false);
  std::optional<std::string> stored;
  base::setPlatformSecretLookup([&](std::string_view account) -> std::optional<std::string> {
    return account == "anthropic-api-key" ? stored : std::nullopt;
  });
  base::Settings::shared().reset(
      {{"anthropicBaseURL", server.url() + "/"}, {"apiModel", "claude-sonnet-5-5"}});
  replay("derived_fix_analysis_with_thinking.sse");
  ai::EngineOptions options;
  options.recording.ledger = ledger;
  options.recording.kind = "triage";
  EXPECT_THROW(ai::makeEngine(ai::AIBackend::claudeAPI, options), AIError);
  stored = "sk-ant-from-store";
  ai::makeEngine(ai::AIBackend::claudeAPI, options)->analyze(prompt(), {});
  options.model = "claude-haiku-5-5";
  EXPECT_EQ(ai::makeEngine(ai::AIBackend::claudeAPI, options)->modelName(), "claude-haiku-5-5");
  base::Settings::shared().reset();
  base::setPlatformSecretLookup(nullptr);

  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].target, "/v1/messages");
  EXPECT_EQ(requests[0].header("x-api-key"), "sk-ant-from-store");
  Json body = Json::parse(requests[0].body);
  EXPECT_EQ(body["model"], "claude-sonnet-5-5");
  EXPECT_EQ(body["max_tokens"], 32000);
  ASSERT_EQ(ledger->entries().size(), 1u);
  EXPECT_EQ(ledger->entries()[0].kind, "triage");
}

} // namespace
// Model listing isn't called by the command line yet, but it is the engine's contract.
TEST_F(ClaudeAPI, ListsModelsOldestFirst) {
  server.respond("GET", "/v1/models", jsonResponse(200, R"({
    "data": [
      {"type": "model", "id": "claude-opus-5-5", "created_at": "2026-09-01T00:00:00Z"},
      {"type": "model", "id": "claude-haiku-5-5", "created_at": "2026-03-10T00:00:00Z"},
      {"type": "model", "id": "claude-sonnet-5-5", "created": "2026-06-15T00:00:00Z"},
      {"type": "model", "display_name": "no id"}
    ],
    "has_more": false})"));
  EXPECT_EQ(provider().listModels(),
            (std::vector<std::string>{"claude-haiku-5-5", "claude-sonnet-5-5", "claude-opus-5-5"}));
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].target, "/v1/models?limit=100");
  EXPECT_EQ(requests[0].header("x-api-key"), "sk-ant-test-key");
  EXPECT_TRUE(ledger->entries().empty());
}

} // namespace quillora::testing
