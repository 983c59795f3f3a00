// The Claude API engine against a loopback fake Anthropic server replaying recorded event
// streams and error bodies: the request as the server received it, the progress lines, the
// decoded answer, the usage, the ledger entry and the exact failure texts.
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
#include "cost/budget.h"
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
};

TEST_F(ClaudeAPI, SendsOneStreamedRequestWithTheSchemaVerbatimAndTheImages) {
  replay("derived_fix_analysis_with_thinking.sse");
  std::vector<ai::LoadedImage> images = {{"Inventory screen", "iVBORw0KGgo=", 8, "image/png"},
                                         {"Frame at 0:03", "/9j/4AAQ", 6, ""}};
  provider().analyzeLoaded(prompt(), images);

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
  Json body = Json::parse(r.body);
  Json expected = Json::parse(R"({
    "model": "claude-opus-5-5",
    "max_tokens": 32000,
    "stream": true,
    "system": "You analyse crashes.\n\n# Quillora output contract",
    "messages": [{"role": "user", "content": [
      {"type": "text", "text": "Analyze this production crash and propose a fix.\n\n<crash_summary>\nNRE"},
      {"type": "image", "source": {"type": "base64", "media_type": "image/png", "data": "iVBORw0KGgo="}},
      {"type": "image", "source": {"type": "base64", "media_type": "image/jpeg", "data": "/9j/4AAQ"}}
    ]}],
    "output_config": {"format": {"type": "json_schema", "schema": null}}
  })");
  expected["output_config"]["format"]["schema"] = Json::parse(ai::fixAnalysisSchema());
  EXPECT_EQ(body, expected);
}

TEST_F(ClaudeAPI, DecodesAStreamedAnalysisWithProgressUsageAndLedgerEntry) {
  replay("derived_fix_analysis_with_thinking.sse");
  auto p = provider();
  auto analysis = p.analyze(prompt(), {});

  EXPECT_EQ(analysis.title,
            "NullReferenceException in `InventoryPanel.Refresh()` when the save has no items");
  EXPECT_EQ(analysis.severity, "high");
  EXPECT_EQ(analysis.confidence, "medium");
  ASSERT_EQ(analysis.rootCauseCode.size(), 1u);
  EXPECT_EQ(analysis.rootCauseCode[0].crashLine, 43);
  ASSERT_EQ(analysis.codeChanges.size(), 1u);
  EXPECT_EQ(analysis.codeChanges[0].after,
            "void Refresh()\n{\n    var count = save.Items?.Count ?? 0;");
  EXPECT_EQ(analysis.affectedFiles,
            std::vector<std::string>{"Assets/Scripts/UI/InventoryPanel.cs"});
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
  EXPECT_EQ(usage.model, "claude-opus-5-5");
  EXPECT_EQ(usage.inputTokens, 1520);
  EXPECT_EQ(usage.outputTokens, 452);
  EXPECT_EQ(usage.cacheReadTokens, 3000);
  EXPECT_EQ(usage.cacheWriteTokens, 200);
  EXPECT_GT(usage.duration, 0.0);
  auto shared = meter->usage("claude-api", "claude-opus-5-5", 1.0);
  ASSERT_TRUE(shared);
  EXPECT_EQ(shared->outputTokens, 452);

  auto entries = ledger->entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].kind, "analysis");
  EXPECT_FALSE(entries[0].failed);
  EXPECT_EQ(entries[0].usage, usage);
  ASSERT_TRUE(entries[0].costUSD);
  // 1520 × $4 + 452 × $20 + 3000 × $0.2 + 200 × $5 per million tokens.
  EXPECT_NEAR(*entries[0].costUSD, 0.01672, 1e-12);
}

struct StreamCase {
  std::string name;
  std::string fixture; // a file under tests/fixtures/anthropic, or "" for `body`
  std::string body;
  std::string message;
  AIError::Case errorCase;
  std::vector<std::string> progress;
  long long inputTokens;
  long long outputTokens;
};

TEST_F(ClaudeAPI, RecordedStreamsThatYieldNoAnalysisFailWithTheirTextsAndAreStillRecorded) {
  const std::string writing = "Claude API is writing the analysis";
  const std::string thinking = "Claude API is thinking through the crash…";
  const std::vector<StreamCase> cases = {
      {"prose answer",
       "sdkpy_basic_response.sse",
       "",
       "Couldn't read the AI's response: not JSON",
       AIError::Case::badResponse,
       {writing},
       11,
       6},
      {"thinking, then prose",
       "prism_stream_extended_thinking.sse",
       "",
       "Couldn't read the AI's response: not JSON",
       AIError::Case::badResponse,
       {thinking, writing},
       50,
       452},
      {"JSON of another shape",
       "vercel_json_output_format.chunks.jsonl",
       "",
       "Couldn't read the AI's response: not JSON",
       AIError::Case::badResponse,
       {writing},
       313,
       305},
      {"error event mid-stream",
       "issue_litellm4562_midstream_api_error.sse",
       "",
       "Claude API error: Internal server error",
       AIError::Case::http,
       {writing},
       0,
       0},
      {"refusal",
       "sdkpy_refusal_response.sse",
       "",
       "Claude declined to answer this request.",
       AIError::Case::refusal,
       {},
       20,
       0},
      {"refusal without content",
       "vercel_refusal.chunks.jsonl",
       "",
       "Claude declined to answer this request.",
       AIError::Case::refusal,
       {},
       18,
       5},
      {"max tokens with complete JSON",
       "derived_max_tokens.chunks.jsonl",
       "",
       "The response was cut off before it finished. Try again, pick a larger model, or use "
       "Claude Code mode for large fixes.",
       AIError::Case::truncated,
       {writing},
       313,
       305},
      {"context window exceeded",
       "",
       "data: {\"type\":\"message_start\",\"message\":{\"usage\":{\"input_tokens\":7}}}\n"
       "data: {\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\","
       "\"text\":\"{\\\"title\\\":\\\"x\\\"}\"}}\n"
       "data: {\"type\":\"message_delta\",\"delta\":{\"stop_reason\":"
       "\"model_context_window_exceeded\"},\"usage\":{\"output_tokens\":3}}\n",
       "The response was cut off before it finished. Try again, pick a larger model, or use "
       "Claude Code mode for large fixes.",
       AIError::Case::truncated,
       {writing, "Title: x"},
       7,
       3},
      {"no text at all",
       "",
       "data: {\"type\":\"message_start\",\"message\":{\"usage\":{\"input_tokens\":9,"
       "\"output_tokens\":1}}}\n\n"
       "data: {\"type\":\"message_delta\",\"delta\":{\"stop_reason\":\"end_turn\"},"
       "\"usage\":{\"output_tokens\":2}}\n\n",
       "Couldn't read the AI's response: empty response",
       AIError::Case::badResponse,
       {},
       9,
       2},
      {"error event without a message",
       "",
       "event: error\ndata: {\"type\":\"error\",\"error\":{\"type\":\"overloaded_error\"}}\n\n",
       "Claude API error: stream error",
       AIError::Case::http,
       {},
       0,
       0},
      {"lines after [DONE] and unparsable data lines are ignored",
       "",
       "data: not json at all\n"
       ": a comment line\n"
       "data:{\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\",\"text\":\"Hi\"}}"
       "\n"
       "data: [DONE]\n"
       "data: {\"type\":\"error\",\"error\":{\"message\":\"after the end\"}}\n",
       "Couldn't read the AI's response: not JSON",
       AIError::Case::badResponse,
       {writing},
       0,
       0},
  };
  for (const auto& c : cases) {
    FakeServer caseServer;
    if (!c.fixture.empty()) {
      caseServer.respond("POST", "/v1/messages",
                         recordedEventStream(fixture("anthropic/" + c.fixture)));
    } else {
      FakeResponse response;
      response.contentType = "text/event-stream";
      response.chunked = true;
      response.body = c.body;
      caseServer.respond("POST", "/v1/messages", response);
    }
    progress.clear();
    auto before = ledger->entries().size();
    auto p = provider(caseServer.url());
    try {
      p.analyze(prompt(), {});
      ADD_FAILURE() << c.name << ": no error";
    } catch (const AIError& e) {
      EXPECT_EQ(e.what(), c.message) << c.name;
      EXPECT_EQ(e.errorCase(), c.errorCase) << c.name;
      EXPECT_EQ(e.status(), 0) << c.name;
    }
    EXPECT_EQ(progress, c.progress) << c.name;
    ASSERT_TRUE(p.lastCall()) << c.name;
    EXPECT_TRUE(p.lastCall()->failed) << c.name;
    EXPECT_EQ(p.lastCall()->usage.inputTokens, c.inputTokens) << c.name;
    EXPECT_EQ(p.lastCall()->usage.outputTokens, c.outputTokens) << c.name;
    auto entries = ledger->entries();
    ASSERT_EQ(entries.size(), before + 1) << c.name;
    EXPECT_TRUE(entries.back().failed) << c.name;
    EXPECT_EQ(entries.back().usage.inputTokens, c.inputTokens) << c.name;
  }
}

TEST_F(ClaudeAPI, ErrorStatusesGiveTheTextsOfTheFailureTable) {
  struct Case {
    int status;
    std::string body;
    std::string message;
  };
  const std::vector<Case> cases = {
      {401,
       R"({"type":"error","error":{"type":"authentication_error","message":"invalid x-api-key"}})",
       "Check the API key in Settings → AI."},
      {403, R"({"type":"error","error":{"type":"permission_error","message":"no access"}})",
       "Check the API key in Settings → AI."},
      {404, R"({"type":"error","error":{"type":"not_found_error","message":"model: claude-x"}})",
       "Check the model name in Settings → AI."},
      {429, R"({"type":"error","error":{"type":"rate_limit_error","message":"slow down"}})",
       "You've hit a rate limit or run out of credit; wait a bit or check your plan."},
      {400, readText(fixture("anthropic/issue_aibridge56_http400_prompt_too_long.json")),
       "Anthropic error 400: prompt is too long: 205351 tokens > 200000 maximum"},
      {529,
       R"({"type":"error","error":{"details":null,"type":"overloaded_error","message":"Overloaded"},"request_id":"req_011Ce3HwQb6vtbs9LQVmh4oe"})",
       "Anthropic error 529: Overloaded"},
      {502, "<html><body>502 Bad Gateway</body></html>", "Anthropic error 502: no details"},
      {500, R"({"type":"error"})", "Anthropic error 500: no details"},
  };
  for (const auto& c : cases) {
    FakeServer caseServer;
    FakeResponse response = jsonResponse(c.status, c.body);
    if (c.body.front() == '<') response.contentType = "text/html";
    caseServer.respond("POST", "/v1/messages", response);
    auto before = ledger->entries().size();
    auto p = provider(caseServer.url());
    try {
      p.analyze(prompt(), {});
      ADD_FAILURE() << c.status << ": no error";
    } catch (const AIError& e) {
      EXPECT_EQ(e.what(), c.message) << c.status;
      EXPECT_EQ(e.errorCase(), AIError::Case::http) << c.status;
      EXPECT_EQ(e.status(), c.status);
    }
    EXPECT_TRUE(progress.empty()) << c.status;
    auto entries = ledger->entries();
    ASSERT_EQ(entries.size(), before + 1) << c.status;
    EXPECT_TRUE(entries.back().failed);
    EXPECT_EQ(entries.back().usage.totalTokens(), 0);
  }
}

TEST_F(ClaudeAPI, ABrokenTransferIsAFailedCallWithTheTokensSoFar) {
  FakeResponse cut =
      recordedEventStream(fixture("anthropic/derived_fix_analysis_with_thinking.sse"));
  cut.cutOffAfter = cut.body.find("event: content_block_start");
  server.respond("POST", "/v1/messages", cut);
  auto p = provider();
  try {
    p.analyze(prompt(), {});
    FAIL() << "no error";
  } catch (const base::HTTPError& e) {
    EXPECT_STREQ(
        e.what(),
        "Couldn't reach 127.0.0.1: the connection closed before the response was complete");
  }
  ASSERT_TRUE(p.lastCall());
  EXPECT_TRUE(p.lastCall()->failed);
  EXPECT_EQ(p.lastCall()->usage.inputTokens, 1520);
  ASSERT_EQ(ledger->entries().size(), 1u);
  EXPECT_TRUE(ledger->entries()[0].failed);

  FakeServer stalling;
  FakeResponse stall = recordedEventStream(fixture("anthropic/sdkpy_basic_response.sse"));
  stall.stallAfter = stall.body.find("event: message_delta");
  stalling.respond("POST", "/v1/messages", stall);
  auto slow = provider(stalling.url());
  slow.stallTimeout = std::chrono::seconds(1);
  try {
    slow.analyze(prompt(), {});
    FAIL() << "no error";
  } catch (const base::HTTPError& e) {
    EXPECT_STREQ(e.what(), "Couldn't reach 127.0.0.1: the server sent nothing for 1 second");
  }
  EXPECT_EQ(ledger->entries().size(), 2u);
}

TEST_F(ClaudeAPI, NothingIsSentOrRecordedWhenTheRequestCantGoOut) {
  auto p = provider();
  auto bad = prompt();
  bad.schema = "{\"type\": \"object\",";
  try {
    p.analyze(bad, {});
    FAIL() << "no error";
  } catch (const AIError& e) {
    EXPECT_STREQ(e.what(), "The JSON schema for this request isn't valid JSON.");
  }

  auto insecure = provider("http://api.example.com");
  try {
    insecure.analyze(prompt(), {});
    FAIL() << "no error";
  } catch (const base::HTTPError& e) {
    EXPECT_STREQ(e.what(),
                 "Refusing to send an API key to api.example.com over plain http; use an https "
                 "address (only loopback addresses may use http).");
  }
  EXPECT_TRUE(server.requests().empty());
  EXPECT_TRUE(ledger->entries().empty());
  EXPECT_FALSE(p.lastCall());
}

TEST_F(ClaudeAPI, AMissingKeyFailsConstruction) {
  const std::string text =
      "Add your Anthropic API key in Settings → AI, or pick another engine in the toolbar.";
  for (const std::string key : {"", "  \n"}) {
    try {
      ClaudeAPIProvider(key, "claude-opus-5-5", 32000, nullptr, meter, server.url());
      FAIL() << "no error";
    } catch (const AIError& e) {
      EXPECT_EQ(e.what(), text);
      EXPECT_EQ(e.errorCase(), AIError::Case::missingAPIKey);
    }
  }
}

TEST_F(ClaudeAPI, FromSettingsTakesKeyModelAndHostFromTheConfiguration) {
  base::setSecretsFromEnvironment(false);
  std::optional<std::string> stored;
  base::setPlatformSecretLookup([&](std::string_view account) -> std::optional<std::string> {
    return account == "anthropic-api-key" ? stored : std::nullopt;
  });
  base::Settings::shared().reset(
      {{"anthropicBaseURL", server.url() + "/"}, {"apiModel", "claude-sonnet-5-5"}});
  EXPECT_THROW(ClaudeAPIProvider::fromSettings("", nullptr, meter), AIError);

  stored = "sk-ant-from-store";
  replay("derived_fix_analysis_with_thinking.sse");
  auto p = ClaudeAPIProvider::fromSettings("", nullptr, meter);
  EXPECT_EQ(p.maxTokens(), 32000);
  p.recording.prices = cost::PriceTable();
  p.analyze(prompt(), {});
  base::Settings::shared().reset();
  base::setPlatformSecretLookup(nullptr);

  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].target, "/v1/messages");
  EXPECT_EQ(requests[0].header("x-api-key"), "sk-ant-from-store");
  EXPECT_EQ(Json::parse(requests[0].body)["model"], "claude-sonnet-5-5");
  EXPECT_EQ(p.lastCall()->usage.model, "claude-sonnet-5-5");
}

TEST_F(ClaudeAPI, PicturesAreReadFromTheirFilesInOrder) {
  replay("derived_fix_analysis_with_thinking.sse");
  auto png = home.write("shots/menu.png", std::string("\x89PNG\r\n\x1a\n\0\0", 10));
  auto jpeg = home.write("shots/frame 1.bin", "\xFF\xD8\xFF\xE0rest");
  auto unknown = home.write("shots/notes.dat", "abc");
  provider().analyze(prompt(),
                     {{"file://" + png.string(), "Menu"},
                      {"file://" + home.path().string() + "/shots/frame%201.bin", "Frame"},
                      {unknown.string(), "Unknown"}});
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  Json content = Json::parse(requests[0].body)["messages"][0]["content"];
  ASSERT_EQ(content.size(), 4u);
  EXPECT_EQ(content[1]["source"],
            Json({{"type", "base64"}, {"media_type", "image/png"}, {"data", "iVBORw0KGgoAAA=="}}));
  EXPECT_EQ(content[2]["source"]["media_type"], "image/jpeg");
  EXPECT_EQ(content[2]["source"]["data"], "/9j/4HJlc3Q=");
  EXPECT_EQ(content[3]["source"]["media_type"], "image/jpeg"); // unknown type
  EXPECT_EQ(content[3]["source"]["data"], "YWJj");

  auto missing = home.path() / "shots" / "gone.png";
  try {
    provider().analyze(prompt(), {{missing.string(), "Gone"}});
    FAIL() << "no error";
  } catch (const AIError& e) {
    EXPECT_EQ(e.what(),
              "Couldn't read the picture " + missing.string() + ": No such file or directory.");
  }
  EXPECT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(ai::imageMimeType(std::string_view("RIFF\x10\0\0\0WEBPVP8 ", 16), "x"), "image/webp");
  EXPECT_EQ(ai::imageMimeType("", "A.JPEG"), "image/jpeg");
}

TEST_F(ClaudeAPI, ABlockingBudgetStopsTheCallBeforeAnythingIsSent) {
  cost::AnalysisUsage spent;
  spent.backend = "claude-api";
  spent.model = "claude-opus-5-5";
  spent.outputTokens = 100'000; // $2.00
  ledger->record(spent, "analysis", std::nullopt, false, cost::PriceTable());
  replay("derived_fix_analysis_with_thinking.sse");
  std::vector<std::string> warnings;

  base::Settings::shared().reset({{"cost.monthlyBudget", 1.5}, {"cost.budgetMode", "block"}});
  auto p = provider();
  p.warning = [&](const std::string& line) { warnings.push_back(line); };
  EXPECT_THROW(p.analyze(prompt(), {}), cost::BudgetError);
  EXPECT_TRUE(server.requests().empty());
  EXPECT_EQ(ledger->entries().size(), 1u);

  base::Settings::shared().reset({{"cost.monthlyBudget", 2.4}, {"cost.budgetMode", "warn"}});
  p.analyze(prompt(), {});
  base::Settings::shared().reset();
  EXPECT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(warnings, std::vector<std::string>{"83% of this month's $2.40 AI budget is used."});
  EXPECT_EQ(ledger->entries().size(), 2u);
}

TEST_F(ClaudeAPI, TheRegistryBuildsTheEngineFromTheSettings) {
  base::setSecretsFromEnvironment(false);
  base::setPlatformSecretLookup([](std::string_view) { return std::string("sk-ant-registry"); });
  base::Settings::shared().reset({{"anthropicBaseURL", server.url()}});
  replay("derived_fix_analysis_with_thinking.sse");
  ai::EngineOptions options;
  options.model = "claude-haiku-5-5";
  options.progress = [this](const std::string& line) { progress.push_back(line); };
  options.usageMeter = meter;
  options.recording.ledger = ledger;
  options.recording.kind = "triage";
  auto engine = ai::makeEngine(ai::AIBackend::claudeAPI, options);
  EXPECT_EQ(engine->backend(), ai::AIBackend::claudeAPI);
  EXPECT_EQ(engine->modelName(), "claude-haiku-5-5");
  engine->analyze(prompt(), {});
  base::Settings::shared().reset();
  base::setPlatformSecretLookup(nullptr);

  EXPECT_EQ(server.requests().at(0).header("x-api-key"), "sk-ant-registry");
  EXPECT_EQ(progress.size(), 11u);
  ASSERT_EQ(ledger->entries().size(), 1u);
  EXPECT_EQ(ledger->entries()[0].kind, "triage");
  EXPECT_EQ(ledger->entries()[0].usage.model, "claude-haiku-5-5");
}

TEST_F(ClaudeAPI, ListsModelsOldestFirst) {
  server.respond("GET", "/v1/models", jsonResponse(200, R"({
    "data": [
      {"type": "model", "id": "claude-opus-5-5", "display_name": "Opus", "created_at": "2026-09-01T00:00:00Z"},
      {"type": "model", "id": "claude-haiku-5-5", "display_name": "Haiku", "created_at": "2026-03-10T00:00:00Z"},
      {"type": "model", "id": "claude-sonnet-5-5", "display_name": "Sonnet", "created": "2026-06-15T00:00:00Z"},
      {"type": "model", "display_name": "no id"}
    ],
    "has_more": false})"));
  EXPECT_EQ(provider().listModels(),
            (std::vector<std::string>{"claude-haiku-5-5", "claude-sonnet-5-5", "claude-opus-5-5"}));
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_EQ(requests[0].target, "/v1/models?limit=100");
  EXPECT_EQ(requests[0].header("x-api-key"), "sk-ant-test-key");
  EXPECT_EQ(requests[0].header("anthropic-version"), "2023-06-01");

  FakeServer refusing;
  refusing.respond(
      "GET", "/v1/models",
      jsonResponse(401, R"({"type":"error","error":{"message":"invalid x-api-key"}})"));
  try {
    provider(refusing.url()).listModels();
    FAIL() << "no error";
  } catch (const AIError& e) {
    EXPECT_STREQ(e.what(), "Check the API key in Settings → AI.");
  }
  EXPECT_TRUE(ledger->entries().empty());
}

} // namespace
} // namespace quillora::testing
