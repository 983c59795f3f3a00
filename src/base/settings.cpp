#include "base/settings.h"

#include "base/error.h"
#include "base/files.h"
#include "base/paths.h"
#include "base/regex.h"

namespace quillora::base {

const std::vector<SettingDefinition>& knownSettings() {
  using T = SettingType;
  static const std::vector<SettingDefinition> settings = {
      {"engine", T::text},
      {"apiModel", T::text},
      {"cliModel", T::text},
      {"openAIModel", T::text},
      {"geminiModel", T::text},
      {"claudePath", T::text},
      {"claudeCode.maxBudgetUSD", T::number},
      {"anthropicBaseURL", T::text},
      {"openAIBaseURL", T::text},
      {"geminiBaseURL", T::text},
      {"apiTimeoutSeconds", T::integer},
      {"analysisLanguage", T::text},
      {"skillFile", T::text},
      {"maxContextKB", T::integer},
      {"inAppPrefixes", T::textList},
      {"symbolFolders", T::textList},
      {"apps", T::objectList},
      {"crashReports.days", T::integer},
      {"cost.monthlyBudget", T::number},
      {"cost.budgetMode", T::text},
      {"cost.priceOverrides", T::object},
      {"branchPrefix", T::text},
      {"bot.intervalMinutes", T::integer},
      {"triage.enabled", T::boolean},
      {"triage.hour", T::integer},
      {"triage.minute", T::integer},
      {"triage.apps", T::textList},
      {"triage.count", T::integer},
      {"triage.engine", T::text},
      {"triage.createBranches", T::boolean},
      {"triage.verify", T::boolean},
      {"triage.verifyUnity", T::boolean},
      {"triage.maxSpend", T::number},
      {"triage.notify", T::boolean},
      {"triage.markdownFolder", T::text},
      {"triage.lastRun", T::text},
      {"triage.digest.pendingOpen", T::boolean},
      {"sources.backtrace.project", T::text},
      {"sources.appstore.issuerID", T::text},
      {"sources.appstore.keyID", T::text},
  };
  return settings;
}

std::optional<SettingType> settingType(std::string_view key) {
  for (const auto& s : knownSettings()) {
    if (s.key == key) return s.type;
  }
  static const Regex sourceHost(
      R"(^sources\.(crashlytics|sentry|bugsnag|backtrace|googleplay|appstore)\.host$)");
  if (sourceHost.test(key)) return SettingType::text;
  return std::nullopt;
}

namespace {

std::string_view describe(SettingType type) {
  switch (type) {
    case SettingType::text: return "a string";
    case SettingType::integer: return "a whole number";
    case SettingType::number: return "a number";
    case SettingType::boolean: return "true or false";
    case SettingType::textList: return "a list of strings";
    case SettingType::object: return "a JSON object";
    case SettingType::objectList: return "a list of JSON objects";
  }
  return "a value";
}

bool hasType(const Json& value, SettingType type) {
  if (value.is_null()) return true;  // null means "unset"
  switch (type) {
    case SettingType::text: return value.is_string();
    case SettingType::integer:
      return value.is_number_integer() || value.is_number_unsigned() ||
             (value.is_number_float() && value.get<double>() == static_cast<double>(
                                                                    static_cast<long long>(value.get<double>())));
    case SettingType::number: return value.is_number();
    case SettingType::boolean: return value.is_boolean();
    case SettingType::textList:
      if (!value.is_array()) return false;
      for (const Json& e : value)
        if (!e.is_string()) return false;
      return true;
    case SettingType::object: return value.is_object();
    case SettingType::objectList:
      if (!value.is_array()) return false;
      for (const Json& e : value)
        if (!e.is_object()) return false;
      return true;
  }
  return false;
}

std::string canonicalKey(const std::string& key) { return key == "prices" ? "cost.priceOverrides" : key; }

void flattenInto(const Json& object, const std::string& prefix, const std::string& origin,
                 std::map<std::string, Json, std::less<>>& out, std::vector<std::string>* unknown) {
  for (const auto& [name, value] : object.items()) {
    std::string key = canonicalKey(prefix.empty() ? name : prefix + "." + name);
    auto type = settingType(key);
    if (!type && value.is_object()) {
      flattenInto(value, key, origin, out, unknown);
      continue;
    }
    if (!type) {
      if (unknown) unknown->push_back(key);
      continue;
    }
    if (!hasType(value, *type)) {
      throw ConfigError("The setting \"" + key + "\" in " + origin + " must be " +
                        std::string(describe(*type)) + ".");
    }
    out[key] = value;
  }
}

}  // namespace

std::map<std::string, Json, std::less<>> flattenSettings(const Json& object,
                                                         const std::string& origin,
                                                         std::vector<std::string>* unknown) {
  std::map<std::string, Json, std::less<>> out;
  flattenInto(object, "", origin, out, unknown);
  return out;
}

Settings& Settings::shared() {
  static Settings settings;
  return settings;
}

namespace {
Json readSettingsFile(const std::filesystem::path& path, bool missingIsEmpty) {
  std::string reason;
  auto content = readFile(path, &reason);
  if (!content) {
    if (missingIsEmpty && !std::filesystem::exists(path)) return Json::object();
    throw ConfigError("Can't read the configuration file " + path.string() + ": " + reason);
  }
  std::string error;
  auto json = parseJson(*content, &error);
  if (!json) throw ConfigError(path.string() + " isn't valid JSON: " + error);
  if (!json->is_object()) throw ConfigError(path.string() + " must contain a JSON object.");
  return *json;
}
}  // namespace

std::vector<std::string> Settings::applyRunConfiguration(const std::filesystem::path& path) {
  Json json = readSettingsFile(path, false);
  std::vector<std::string> unknown;
  m_run = flattenSettings(json, path.string(), &unknown);
  m_runConfigurationPath = path;
  std::vector<std::string> warnings;
  for (const auto& key : unknown) {
    warnings.push_back("Unknown setting \"" + key + "\" in " + path.string() + "; it is ignored.");
  }
  return warnings;
}

void Settings::loadStored() {
  if (m_storedLoaded) return;
  m_storedLoaded = true;
  auto path = appSupportDirectory() / "settings.json";
  // Unknown keys in the stored file may come from a newer version of the program: keep quiet.
  m_stored = flattenSettings(readSettingsFile(path, true), path.string(), nullptr);
}

void Settings::reset(Json stored) {
  m_stored = flattenSettings(stored, "settings", nullptr);
  m_storedLoaded = true;
  m_run.clear();
  m_runConfigurationPath.reset();
}

const Json* Settings::value(std::string_view key) {
  if (auto it = m_run.find(key); it != m_run.end() && !it->second.is_null()) return &it->second;
  loadStored();
  if (auto it = m_stored.find(key); it != m_stored.end() && !it->second.is_null()) return &it->second;
  return nullptr;
}

std::optional<std::string> Settings::text(std::string_view key) {
  const Json* v = value(key);
  if (!v || !v->is_string()) return std::nullopt;
  return v->get<std::string>();
}

std::optional<long long> Settings::integer(std::string_view key) {
  const Json* v = value(key);
  if (!v || !v->is_number()) return std::nullopt;
  return v->is_number_float() ? static_cast<long long>(v->get<double>()) : v->get<long long>();
}

std::optional<double> Settings::number(std::string_view key) {
  const Json* v = value(key);
  if (!v || !v->is_number()) return std::nullopt;
  return v->get<double>();
}

std::optional<bool> Settings::boolean(std::string_view key) {
  const Json* v = value(key);
  if (!v || !v->is_boolean()) return std::nullopt;
  return v->get<bool>();
}

std::vector<std::string> Settings::textList(std::string_view key) {
  std::vector<std::string> out;
  const Json* v = value(key);
  if (!v || !v->is_array()) return out;
  for (const Json& e : *v)
    if (e.is_string()) out.push_back(e.get<std::string>());
  return out;
}

}  // namespace quillora::base
