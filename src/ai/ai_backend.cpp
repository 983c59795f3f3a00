#include "ai/ai_backend.h"

#include "base/error.h"
#include "base/settings.h"
#include "base/strings.h"

namespace quillora::ai {

const std::vector<AIBackendInfo>& aiEngines() {
  static const std::vector<AIBackendInfo> engines = {
      {AIBackend::claudeAPI, "claude-api", "Claude API", "Claude API", "claude-opus-5-5", "apiModel",
       "Anthropic", {"claude", "anthropic"}},
      {AIBackend::claudeCode, "claude-code", "Claude Code CLI", "Claude Code", "opus", "cliModel",
       "Anthropic", {"claudecode"}},
      {AIBackend::openAI, "openai", "ChatGPT (OpenAI API)", "ChatGPT", "gpt-6-astra", "openAIModel",
       "OpenAI", {"chatgpt"}},
      {AIBackend::gemini, "gemini", "Gemini API", "Gemini", "gemini-4-argon", "geminiModel",
       "Gemini", {"google"}},
  };
  return engines;
}

const AIBackendInfo& backendInfo(AIBackend backend) {
  for (const auto& info : aiEngines())
    if (info.backend == backend) return info;
  return aiEngines().front();
}

std::optional<AIBackend> backendFromName(std::string_view name) {
  std::string lowered = base::toLowerASCII(base::trim(name));
  for (const auto& info : aiEngines()) {
    if (info.rawValue == lowered) return info.backend;
    for (auto alias : info.aliases)
      if (alias == lowered) return info.backend;
  }
  return std::nullopt;
}

std::string engineNameList() {
  std::vector<std::string> names;
  for (const auto& info : aiEngines()) names.emplace_back(info.rawValue);
  return base::join(names, ", ");
}

std::string modelFor(AIBackend backend) {
  const auto& info = backendInfo(backend);
  auto setting = base::Settings::shared().text(info.modelSettingKey);
  if (setting && !base::trim(*setting).empty()) return base::trimmed(*setting);
  return std::string(info.defaultModel);
}

AIBackend configuredBackend() {
  auto setting = base::Settings::shared().text("engine");
  if (!setting || base::trim(*setting).empty()) return AIBackend::claudeAPI;
  if (auto backend = backendFromName(*setting)) return *backend;
  throw ConfigError("The setting \"engine\" is '" + *setting + "'; it must be one of: " +
                    engineNameList() + ".");
}

}  // namespace quillora::ai
