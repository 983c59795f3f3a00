#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The language of the human-readable parts of an answer (setting "analysisLanguage").
namespace quillora::ai {

enum class AnalysisLanguage { english, app, spanish, german, italian, french };

struct AnalysisLanguageInfo {
  AnalysisLanguage language;
  std::string_view rawValue;     // the stored setting value
  std::string_view displayName;  // as the settings list shows it
  std::string_view code;         // empty for `app`
  std::string_view promptName;   // empty for `app`
};

const std::vector<AnalysisLanguageInfo>& analysisLanguages();
const AnalysisLanguageInfo& languageInfo(AnalysisLanguage language);
// A raw value, display name, language code or prompt name, without regard to ASCII case.
std::optional<AnalysisLanguage> analysisLanguageFromName(std::string_view name);

// The interface language of this build. The command line speaks English, so `app` means English.
inline constexpr std::string_view kInterfaceLanguageCode = "en";

// The language an answer is written in: `app` resolves through the interface language code
// (English when that code names no answer language).
AnalysisLanguage resolvedLanguage(AnalysisLanguage language,
                                  std::string_view interfaceCode = kInterfaceLanguageCode);

// The "analysisLanguage" setting, else english. Throws ConfigError for a value naming no language.
AnalysisLanguage configuredAnalysisLanguage();

}  // namespace quillora::ai
