#include "ai/analysis_language.h"

#include "base/error.h"
#include "base/settings.h"
#include "base/strings.h"

namespace quillora::ai {

const std::vector<AnalysisLanguageInfo>& analysisLanguages() {
  using L = AnalysisLanguage;
  static const std::vector<AnalysisLanguageInfo> languages = {
      {L::english, "english", "English", "en", "English"},
      {L::app, "app", "Same as the app", "", ""},
      {L::spanish, "spanish", "Español", "es", "Spanish"},
      {L::german, "german", "Deutsch", "de", "German"},
      {L::italian, "italian", "Italiano", "it", "Italian"},
      {L::french, "french", "Français", "fr", "French"},
  };
  return languages;
}

const AnalysisLanguageInfo& languageInfo(AnalysisLanguage language) {
  for (const auto& info : analysisLanguages())
    if (info.language == language) return info;
  return analysisLanguages().front();
}

std::optional<AnalysisLanguage> analysisLanguageFromName(std::string_view name) {
  std::string lowered = base::toLowerASCII(base::trim(name));
  if (lowered.empty()) return std::nullopt;
  for (const auto& info : analysisLanguages()) {
    if (lowered == info.rawValue || lowered == base::toLowerASCII(info.displayName) ||
        lowered == info.code || lowered == base::toLowerASCII(info.promptName))
      return info.language;
  }
  return std::nullopt;
}

AnalysisLanguage resolvedLanguage(AnalysisLanguage language, std::string_view interfaceCode) {
  if (language != AnalysisLanguage::app) return language;
  std::string code = base::toLowerASCII(interfaceCode.substr(0, 2));
  for (const auto& info : analysisLanguages())
    if (!info.code.empty() && info.code == code) return info.language;
  return AnalysisLanguage::english;
}

AnalysisLanguage configuredAnalysisLanguage() {
  auto setting = base::Settings::shared().text("analysisLanguage");
  if (!setting || base::trim(*setting).empty()) return AnalysisLanguage::english;
  if (auto language = analysisLanguageFromName(*setting)) return *language;
  throw ConfigError("The setting \"analysisLanguage\" is '" + *setting +
                    "'; it must be one of: english, app, spanish, german, italian, french.");
}

}  // namespace quillora::ai
