#include "ai/claude_api_provider.h"

#include "ai/ai_backend.h"
#include "ai/ai_error.h"
#include "ai/analysis_schema.h"
#include "ai/analysis_stream.h"
#include "ai/image_loading.h"
#include "base/http.h"
#include "base/json.h"
#include "base/secrets.h"
#include "base/settings.h"
#include "base/strings.h"
#include "base/time.h"
#include "cost/budget.h"

#include <algorithm>
#include <exception>

namespace quillora::ai {

namespace {

constexpr std::string_view kAPIVersion = "2023-06-01";
constexpr std::string_view kEngineName = "Claude API";

std::string normalizedBaseURL(std::string url) {
  url = base::trimmed(url);
  while (!url.empty() && url.back() == '/')
    url.pop_back();
  return url.empty() ? std::string(ClaudeAPIProvider::kDefaultBaseURL) : url;
}

// The "message" of the body's "error" object, or "no details".
std::string errorMessage(std::string_view body) {
  auto json = base::parseJson(body);
  if (json && json->is_object()) {
    auto error = json->find("error");
    if (error != json->end() && error->is_object()) {
      if (auto message = base::readString(*error, "message"); message && !message->empty())
        return *message;
    }
  }
  return "no details";
}

base::Json contentBlocks(const StructuredPrompt& prompt, const std::vector<LoadedImage>& images) {
  base::Json content = base::Json::array();
  content.push_back({{"type", "text"}, {"text", prompt.user}});
  for (const auto& image : images) {
    std::string mediaType = image.mimeType.empty() ? "image/jpeg" : image.mimeType;
    content.push_back(
        {{"type", "image"},
         {"source", {{"type", "base64"}, {"media_type", mediaType}, {"data", image.base64}}}});
  }
  return content;
}

// The state of one streamed answer.
class EventStream {
public:
  EventStream(AnalysisStream& progress, CallMeter& meter) : m_progress(progress), m_meter(meter) {}

  // One line of the response body.
  void line(std::string_view line) {
    if (m_done || line.rfind("data:", 0) != 0) return;
    std::string_view data = base::trim(line.substr(5));
    if (data == "[DONE]") {
      m_done = true;
      return;
    }
    auto event = base::parseJson(data);
    if (!event || !event->is_object()) return;
    dispatch(*event);
  }

  [[nodiscard]] const std::string& answer() const { return m_answer; }
  [[nodiscard]] const std::string& stopReason() const { return m_stopReason; }

private:
  void dispatch(const base::Json& event) {
    std::string type = base::readString(event, "type").value_or("");
    if (type == "message_start") {
      if (const auto* usage = child(child(&event, "message"), "usage"))
        m_meter.report(cost::UsageReport::fromAnthropic(*usage));
    } else if (type == "content_block_start") {
      const auto* block = child(&event, "content_block");
      if (block && base::readString(*block, "type") == "thinking" && !m_thinkingAnnounced) {
        m_thinkingAnnounced = true;
        m_progress.thinking();
      }
    } else if (type == "content_block_delta") {
      const auto* delta = child(&event, "delta");
      if (delta && base::readString(*delta, "type") == "text_delta") {
        std::string text = base::readString(*delta, "text").value_or("");
        m_answer += text;
        m_progress.receive(text);
      }
    } else if (type == "message_delta") {
      if (const auto* delta = child(&event, "delta")) {
        if (auto reason = base::readString(*delta, "stop_reason")) m_stopReason = *reason;
      }
      if (const auto* usage = child(&event, "usage"))
        m_meter.report(cost::UsageReport::fromAnthropic(*usage));
    } else if (type == "error") {
      std::string message = "stream error";
      if (const auto* error = child(&event, "error")) {
        if (auto text = base::readString(*error, "message")) message = *text;
      }
      throw AIError::http(std::string(kEngineName), 0, message);
    }
  }

  static const base::Json* child(const base::Json* object, std::string_view key) {
    if (!object || !object->is_object()) return nullptr;
    auto found = object->find(key);
    return found != object->end() && found->is_object() ? &*found : nullptr;
  }

  AnalysisStream& m_progress;
  CallMeter& m_meter;
  std::string m_answer;
  std::string m_stopReason;
  bool m_thinkingAnnounced = false;
  bool m_done = false;
};

} // namespace

ClaudeAPIProvider::ClaudeAPIProvider(std::string apiKey, std::string model, int maxTokens,
                                     Progress progress,
                                     std::shared_ptr<cost::UsageMeter> usageMeter,
                                     std::string baseURL)
    : m_apiKey(base::trimmed(apiKey)), m_model(std::move(model)), m_maxTokens(maxTokens),
      m_progress(std::move(progress)), m_usageMeter(std::move(usageMeter)),
      m_baseURL(normalizedBaseURL(std::move(baseURL))) {
  if (m_apiKey.empty()) throw AIError::missingAPIKey("Anthropic");
}

ClaudeAPIProvider ClaudeAPIProvider::fromSettings(std::string model, Progress progress,
                                                  std::shared_ptr<cost::UsageMeter> usageMeter) {
  std::string key = base::secret("anthropic-api-key").value_or("");
  std::string baseURL = base::Settings::shared().text("anthropicBaseURL").value_or("");
  if (base::trim(model).empty()) model = modelFor(AIBackend::claudeAPI);
  ClaudeAPIProvider provider(key, std::move(model), 32000, std::move(progress),
                             std::move(usageMeter), baseURL);
  if (auto seconds = base::Settings::shared().integer("apiTimeoutSeconds"); seconds && *seconds > 0)
    provider.stallTimeout = std::chrono::seconds(*seconds);
  return provider;
}

FixAnalysis ClaudeAPIProvider::analyze(const StructuredPrompt& prompt,
                                       const std::vector<PromptImage>& images) {
  return analyzeLoaded(prompt, loadImages(images));
}

FixAnalysis ClaudeAPIProvider::analyzeLoaded(const StructuredPrompt& prompt,
                                             const std::vector<LoadedImage>& images) {
  FixAnalysis analysis;
  send(prompt, images, [&](const std::string& answer) { analysis = decodeFixAnalysis(answer); });
  return analysis;
}

std::string ClaudeAPIProvider::complete(const StructuredPrompt& prompt,
                                        const std::vector<LoadedImage>& images) {
  std::string text;
  send(prompt, images, [&](const std::string& answer) { text = answer; });
  return text;
}

void ClaudeAPIProvider::send(const StructuredPrompt& prompt, const std::vector<LoadedImage>& images,
                             const std::function<void(const std::string&)>& accept) {
  base::Json body = {
      {"model", m_model},
      {"max_tokens", m_maxTokens},
      {"stream", true},
      {"system", prompt.system},
      {"messages",
       base::Json::array({{{"role", "user"}, {"content", contentBlocks(prompt, images)}}})},
      {"output_config",
       {{"format", {{"type", "json_schema"}, {"schema", std::string(kSchemaPlaceholder)}}}}},
  };
  base::HTTPRequest request;
  request.method = "POST";
  request.url = m_baseURL + "/v1/messages";
  request.headers = {{"x-api-key", m_apiKey},
                     {"anthropic-version", std::string(kAPIVersion)},
                     {"content-type", "application/json"},
                     {"accept", "text/event-stream"}};
  request.body = insertSchema(body, prompt.schema); // an invalid schema stops here, unsent
  request.carriesSecret = true;
  request.connectTimeout = std::chrono::seconds(60);
  request.timeout = std::chrono::milliseconds(0);
  request.stallTimeout = stallTimeout;
  base::requireSecureTransport(request.url); // before the call counts as made
  if (recording.ledger) {
    if (auto notice = cost::checkBudgetBeforeCall(*recording.ledger); notice && warning)
      warning(*notice);
  }

  CallMeter meter(std::string(backendInfo(AIBackend::claudeAPI).rawValue), m_model, m_usageMeter);
  AnalysisStream progress(std::string(kEngineName), prompt.labels, [this](const std::string& line) {
    if (m_progress) m_progress(line);
  });
  EventStream events(progress, meter);
  try {
    auto response =
        base::sendHTTPStreaming(request, [&](std::string_view line) { events.line(line); });
    if (!response.isSuccess())
      throw AIError::http("Anthropic", static_cast<int>(response.status),
                          errorMessage(response.body));
    if (events.stopReason() == "refusal") throw AIError::refusal("Claude");
    if (events.stopReason() == "max_tokens" ||
        events.stopReason() == "model_context_window_exceeded")
      throw AIError::truncated();
    accept(events.answer());
  } catch (...) {
    // A failed call is recorded too: its tokens still cost money. The call's own error wins
    // over a ledger that can't be written.
    try {
      m_lastCall = meter.finish(recording, true);
    } catch (const std::exception&) {
    }
    throw;
  }
  m_lastCall = meter.finish(recording, false);
}

std::vector<std::string> ClaudeAPIProvider::listModels() {
  base::HTTPRequest request;
  request.url = m_baseURL + "/v1/models?limit=100";
  request.headers = {{"x-api-key", m_apiKey}, {"anthropic-version", std::string(kAPIVersion)}};
  request.carriesSecret = true;
  request.connectTimeout = std::chrono::seconds(60);
  request.timeout = std::chrono::seconds(60);
  auto response = base::sendHTTP(request);
  if (!response.isSuccess())
    throw AIError::http("Anthropic", static_cast<int>(response.status),
                        errorMessage(response.body));
  auto json = base::parseJson(response.body);
  if (!json || !json->is_object()) throw AIError::badResponse("not JSON");

  struct Model {
    std::string id;
    base::Clock::time_point created;
  };
  std::vector<Model> models;
  auto data = json->find("data");
  if (data != json->end() && data->is_array()) {
    for (const auto& entry : *data) {
      auto id = base::readString(entry, "id");
      if (!id || id->empty()) continue;
      // The API names it "created_at"; "created" is read first for older servers and proxies.
      auto created = base::readString(entry, "created");
      if (!created) created = base::readString(entry, "created_at");
      auto time = created ? base::parseISO8601(*created) : std::nullopt;
      models.push_back({*id, time.value_or(base::Clock::time_point{})});
    }
  }
  std::stable_sort(models.begin(), models.end(),
                   [](const Model& a, const Model& b) { return a.created < b.created; });
  std::vector<std::string> ids;
  for (auto& model : models)
    ids.push_back(std::move(model.id));
  return ids;
}

} // namespace quillora::ai
