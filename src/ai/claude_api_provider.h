#pragma once

#include "ai/analysis_engine.h"
#include "ai/bug_ticket.h"
#include "ai/fix_analysis.h"
#include "ai/structured_prompt.h"
#include "ai/usage_recording.h"
#include "cost/usage_meter.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The engine of AIBackend claudeAPI ("Claude API"): one streamed request to the Anthropic
// Messages API per call. Calls run on the calling thread; progress lines are made from it in the
// order the events arrive.
namespace quillora::ai {

class ClaudeAPIProvider : public AnalysisEngine {
public:
  using Progress = std::function<void(const std::string& line)>;

  static constexpr std::string_view kDefaultBaseURL = "https://api.anthropic.com";

  // Throws AIError missingAPIKey for vendor "Anthropic" when apiKey is empty. `baseURL` is the
  // API's scheme and host ("https://api.anthropic.com"); the paths are appended to it.
  ClaudeAPIProvider(std::string apiKey, std::string model, int maxTokens, Progress progress,
                    std::shared_ptr<cost::UsageMeter> usageMeter,
                    std::string baseURL = std::string(kDefaultBaseURL));

  // The engine as the registry builds it: the key from the secret store ("anthropic-api-key",
  // ANTHROPIC_API_KEY on the command line), `model` (empty: the `apiModel` setting, default
  // "claude-opus-5-5"), 32000 output tokens and the host of the `anthropicBaseURL` setting.
  // Throws AIError missingAPIKey.
  static ClaudeAPIProvider fromSettings(std::string model, Progress progress,
                                        std::shared_ptr<cost::UsageMeter> usageMeter);

  [[nodiscard]] AIBackend backend() const override { return AIBackend::claudeAPI; }
  [[nodiscard]] std::string modelName() const override { return m_model; }

  // Reads the pictures (AIError failed when one can't be read) and analyzes as below.
  FixAnalysis analyze(const StructuredPrompt& prompt,
                      const std::vector<PromptImage>& images) override;

  // Sends the prompt (the images after its text) and decodes the answer. Throws BudgetError
  // before sending when the monthly budget blocks the call; AIError (the cases of the engine's
  // failure table); base::HTTPError when the API can't be reached or the stream breaks off;
  // CancelledError on Ctrl-C. Every call that was sent is recorded, failed or not.
  FixAnalysis analyzeLoaded(const StructuredPrompt& prompt, const std::vector<LoadedImage>& images);

  // The same request for any other schema: returns the answer text once the stop reason allows
  // it, undecoded. Throws as analyzeLoaded() does, except for the decoding.
  std::string complete(const StructuredPrompt& prompt, const std::vector<LoadedImage>& images);

  // The model identifiers the key may use, oldest first. Throws AIError http, base::HTTPError.
  std::vector<std::string> listModels();

  [[nodiscard]] const std::optional<RecordedCall>& lastCall() const override { return m_lastCall; }
  [[nodiscard]] int maxTokens() const { return m_maxTokens; }

  // Where finished calls are written (the cost ledger, the call's kind and history record).
  UsageRecording recording;
  // Receives the monthly budget's notice ("… of this month's … AI budget is used.").
  Progress warning;
  // A streamed answer that sends nothing for this long is given up (the model may think for a
  // while before the first byte, so this is generous). The "apiTimeoutSeconds" setting changes it.
  std::chrono::milliseconds stallTimeout = std::chrono::seconds(300);

private:
  // Sends one request and hands the answer text to `accept` (which may throw, failing the call);
  // meters and records the call either way.
  void send(const StructuredPrompt& prompt, const std::vector<LoadedImage>& images,
            const std::function<void(const std::string&)>& accept);

  std::string m_apiKey;
  std::string m_model;
  int m_maxTokens;
  Progress m_progress;
  std::shared_ptr<cost::UsageMeter> m_usageMeter;
  std::string m_baseURL;
  std::optional<RecordedCall> m_lastCall;
};

} // namespace quillora::ai
