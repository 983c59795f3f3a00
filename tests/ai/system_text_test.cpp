#include <gtest/gtest.h>

#include "ai/analysis_language.h"
#include "ai/system_text.h"
#include "base/strings.h"

namespace quillora::ai {
namespace {

TEST(SystemText, IsSkillThenContractThenLanguage) {
  const std::string contract(outputContract());
  EXPECT_EQ(buildSystemText("S", AnalysisLanguage::english), "S\n\n" + contract);
  EXPECT_EQ(buildSystemText("S", AnalysisLanguage::app), "S\n\n" + contract);
  EXPECT_EQ(buildSystemText("S", AnalysisLanguage::german),
            "S\n\n" + contract +
                "\n\nWrite the human-readable text in German: title, rootCause, every "
                "rootCauseCode[].explanation, fixSummary, every codeChanges[].explanation, "
                "reproSteps, testSuggestions and summary. Keep the JSON keys, the severity and "
                "confidence values (critical/high/medium/low), code, file paths, identifiers, log "
                "lines and error messages exactly as specified or as they are in the source.");
}

// The rules are wording for the model; what must hold is their shape and the conventions the
// rest of the program relies on (the excerpts' line-number prefix, backticks shown as code).
TEST(SystemText, ContractIsAHeaderAndNineWrappedRules) {
  std::string contract(outputContract());
  auto lines = base::splitLines(contract);
  ASSERT_GT(lines.size(), 4u);
  EXPECT_EQ(lines[0], "# Quillora output contract");
  EXPECT_EQ(lines[1], "You are running inside Quillora, a macOS tool that turns a Crashlytics stack "
                      "trace into a fix, reproduction steps, a git branch, a pull request and a "
                      "Jira/Trello ticket.");
  EXPECT_EQ(lines[2], "");
  EXPECT_EQ(lines[3], "Always:");
  int rules = 0;
  for (size_t i = 4; i < lines.size(); ++i) {
    if (lines[i].substr(0, 2) == "- ")
      ++rules;
    else
      EXPECT_EQ(lines[i].substr(0, 2), "  ") << lines[i];
    EXPECT_LE(lines[i].size(), 100u) << lines[i];
  }
  EXPECT_EQ(rules, 9);
  EXPECT_NE(contract.find("\" 123 | \" line-number prefixes"), std::string::npos);
  EXPECT_NE(contract.find("Quillora renders backticked text as code."), std::string::npos);
}

TEST(AnalysisLanguage, NamesCodesAndTheAppLanguage) {
  struct Case {
    std::string name;
    AnalysisLanguage language;
  };
  for (const auto& c : std::vector<Case>{{"english", AnalysisLanguage::english},
                                         {"APP", AnalysisLanguage::app},
                                         {"es", AnalysisLanguage::spanish},
                                         {"Deutsch", AnalysisLanguage::german},
                                         {"italian", AnalysisLanguage::italian},
                                         {"Français", AnalysisLanguage::french}}) {
    EXPECT_EQ(analysisLanguageFromName(c.name), c.language) << c.name;
  }
  EXPECT_FALSE(analysisLanguageFromName("klingon"));
  EXPECT_EQ(resolvedLanguage(AnalysisLanguage::app, "it"), AnalysisLanguage::italian);
  EXPECT_EQ(resolvedLanguage(AnalysisLanguage::app, "ja"), AnalysisLanguage::english);
  EXPECT_EQ(resolvedLanguage(AnalysisLanguage::app), AnalysisLanguage::english);
}

}  // namespace
}  // namespace quillora::ai
