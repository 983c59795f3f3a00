#include "ai/engine_registry.h"

#include "ai/claude_api_provider.h"
#include "ai/claude_code_provider.h"

namespace quillora::ai {

std::unique_ptr<AnalysisEngine> makeEngine(AIBackend backend, EngineOptions options) {
  switch (backend) {
  case AIBackend::claudeCode: {
    auto engine = std::make_unique<ClaudeCodeProvider>(ClaudeCodeProvider::fromSettings(
        std::move(options.model), std::move(options.progress), std::move(options.usageMeter)));
    engine->recording = std::move(options.recording);
    engine->warning = std::move(options.warning);
    return engine;
  }
  case AIBackend::claudeAPI: {
    auto engine = std::make_unique<ClaudeAPIProvider>(ClaudeAPIProvider::fromSettings(
        std::move(options.model), std::move(options.progress), std::move(options.usageMeter)));
    engine->recording = std::move(options.recording);
    engine->warning = std::move(options.warning);
    return engine;
  }
  case AIBackend::openAI:
  case AIBackend::gemini:
    break;
  }
  throw EngineUnavailableError("The " + std::string(backendInfo(backend).displayName) +
                               " engine isn't available in this build yet; use --engine "
                               "claude-api or --engine claude-code.");
}

std::string consentNote(AIBackend backend, const std::string& model) {
  std::string provider;
  switch (backend) {
  case AIBackend::claudeCode:
    return "Note: Claude Code (" + model +
           ") reads the repository and sends the crash and code to Anthropic. Running the "
           "Quillora command line counts as consent to that.\n";
  case AIBackend::claudeAPI:
    provider = "Anthropic";
    break;
  case AIBackend::openAI:
    provider = "OpenAI";
    break;
  case AIBackend::gemini:
    provider = "Google";
    break;
  }
  return "Note: the crash (stack trace, crash context, notes) and matching source code are sent "
         "to " +
         provider + " (" + model +
         "). Running the Quillora command line counts as consent to that.\n";
}

} // namespace quillora::ai
