#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillora::ai {

// The engine choice. Raw values are the --engine values and the stored "engine" setting.
enum class AIBackend { claudeAPI, claudeCode, openAI, gemini };

struct AIBackendInfo {
  AIBackend backend;
  std::string_view rawValue;
  std::string_view displayName;
  std::string_view shortLabel;
  std::string_view defaultModel;
  std::string_view modelSettingKey;
  std::string_view vendorName;  // who answers, as messages name it: "Anthropic", "OpenAI", "Gemini"
  std::vector<std::string_view> aliases;  // accepted besides the raw value
};

// True for the engine that opens the repository's files and images itself (Claude Code); the API
// engines get everything inside the prompt.
inline bool readsFilesItself(AIBackend backend) { return backend == AIBackend::claudeCode; }

// The engines in their listed order (AIEngines).
const std::vector<AIBackendInfo>& aiEngines();
const AIBackendInfo& backendInfo(AIBackend backend);
// A raw value or alias, compared without regard to ASCII case; nullopt when unknown.
std::optional<AIBackend> backendFromName(std::string_view name);
// "claude-api, claude-code, openai, gemini".
std::string engineNameList();
// The engine's model: its model setting unless empty, else the default.
std::string modelFor(AIBackend backend);
// The configured engine ("engine" setting), else claude-api. Throws ConfigError for a value that
// names no engine.
AIBackend configuredBackend();

}  // namespace quillora::ai
