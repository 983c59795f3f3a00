#pragma once

#include "ai/fix_analysis.h"
#include "ai/loaded_image.h"
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

class ClaudeAPIProvider {
public:
  using Progress = std::function<void(const std::string& line)>;

  // Throws AIError missingAPIKey for vendor "Anthropic" when apiKey is empty. `baseURL` is the
  // API's scheme and host ("https://api.anthropic.com"); the paths are appended to it.
  ClaudeAPIProvider(std::string apiKey, std::string model, int maxTokens, Progress progress,
                    std::shared_ptr<cost::UsageMeter> usageMeter,
                    std::string baseURL = std::string(kDefaultBaseURL));

  // The engine as the registry builds it: the key from the secret store ("anthropic-api-key",
  // ANTHROPIC_API_KEY on the command line), the `apiModel` setting, 32000 output tokens and the
  // host of the `anthropicBaseURL` setting. Throws AIError missingAPIKey.
  static ClaudeAPIProvider fromSettings(Progress progress,
                                        std::shared_ptr<cost::UsageMeter> usageMeter);

  // Sends the prompt (with the images after its text) and decodes the answer. Throws AIError (the
  // cases of the engine's failure table), base::HTTPError when the API can't be reached or the
  // stream breaks off, CancelledError on Ctrl-C. Every call that was sent is recorded, failed
  // or not, with the usage meter and through `recording`.
  FixAnalysis analyze(const StructuredPrompt& prompt, const std::vector<LoadedImage>& images);

  // The same request for any other schema: returns the answer text once the stop reason allows
  // it, undecoded. Throws as analyze() does, except for the decoding.
  std::string complete(const StructuredPrompt& prompt, const std::vector<LoadedImage>& images);

  // The model identifiers the key may use, oldest first. Throws AIError http, base::HTTPError.
  std::vector<std::string> listModels();

  // Where finished calls are written (the cost ledger, the call's kind and history record).
  UsageRecording recording;
  // The usage and ledger entry of the last call that was sent; nullopt before the first.
  [[nodiscard]] const std::optional<RecordedCall>& lastCall() const { return m_lastCall; }

  [[nodiscard]] const std::string& model() const { return m_model; }
  [[nodiscard]] int maxTokens() const { return m_maxTokens; }

  static constexpr std::string_view kDefaultBaseURL = "https://api.anthropic.com";
  // A streamed answer that sends nothing for this long is given up (the model may think for a
  // while before the first byte, so this is generous). Tests shorten it.
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
