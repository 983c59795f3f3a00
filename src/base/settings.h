#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/json.h"

// The settings model: "settings.json" in the application-support folder (the stored settings),
// overlaid for one command-line run by the run configuration (--config or QUILLORA_CONFIG). Keys are
// dotted; a nested object in a file means dotted keys ("triage": {"count": 5} is "triage.count"),
// except for the structured keys whose value is kept whole ("apps", "cost.priceOverrides",
// "inAppPrefixes", "symbolFolders", "triage.apps"). Used from the main thread.
namespace quillora::base {

enum class SettingType { text, integer, number, boolean, textList, object, objectList };

struct SettingDefinition {
  std::string_view key;
  SettingType type;
};

// Every key the program reads, with its type. "sources.<source>.host" is matched by pattern.
const std::vector<SettingDefinition>& knownSettings();
std::optional<SettingType> settingType(std::string_view key);

class Settings {
 public:
  // The process-wide settings. The stored file is read on the first lookup, not before.
  static Settings& shared();

  // Reads a run configuration over the stored settings for this run only. Throws ConfigError with
  // "Can't read the configuration file <path>: <reason>", "<path> isn't valid JSON: <reason>",
  // "<path> must contain a JSON object." or a sentence naming a key of the wrong type. Returns one
  // warning per unknown key.
  std::vector<std::string> applyRunConfiguration(const std::filesystem::path& path);
  [[nodiscard]] const std::optional<std::filesystem::path>& runConfigurationPath() const {
    return m_runConfigurationPath;
  }

  // The value of a key (run configuration first, then stored), or null when unset.
  const Json* value(std::string_view key);
  std::optional<std::string> text(std::string_view key);
  std::optional<long long> integer(std::string_view key);
  std::optional<double> number(std::string_view key);
  std::optional<bool> boolean(std::string_view key);
  std::vector<std::string> textList(std::string_view key);

  // Replaces the stored layer (tests) and forgets the run configuration.
  void reset(Json stored = Json::object());

 private:
  void loadStored();
  std::map<std::string, Json, std::less<>> m_stored;
  std::map<std::string, Json, std::less<>> m_run;
  bool m_storedLoaded = false;
  std::optional<std::filesystem::path> m_runConfigurationPath;
};

// Flattens a settings object into dotted keys, checking types. `origin` names the file in
// messages. Throws ConfigError for a wrong type; unknown keys are kept and reported in *unknown.
std::map<std::string, Json, std::less<>> flattenSettings(const Json& object,
                                                         const std::string& origin,
                                                         std::vector<std::string>* unknown);

}  // namespace quillora::base
