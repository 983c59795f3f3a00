#include <gtest/gtest.h>

#include "ai/analysis_language.h"
#include "ai/system_text.h"
#include "base/strings.h"

namespace quillora::ai {
namespace {

TEST(SystemText, IsSkillThenContractThenLanguage) {
  std::string english = buildSystemText("You fix Unity crashes.", AnalysisLanguage::english);
  EXPECT_EQ(english.substr(0, 51), "You fix Unity crashes.\n\n# Quillora output contract\n");
  EXPECT_EQ(english, "You fix Unity crashes.\n\n" + std::string(outputContract()));
  EXPECT_EQ(buildSystemText("S", AnalysisLanguage::app), "S\n\n" + std::string(outputContract()));

  std::string german = buildSystemText("S", AnalysisLanguage::german);
  EXPECT_EQ(german.substr(german.size() - languageInstruction(AnalysisLanguage::german).size()),
            languageInstruction(AnalysisLanguage::german));
  EXPECT_EQ(languageInstruction(AnalysisLanguage::german),
            "\n\nWrite the human-readable text in German: title, rootCause, every "
            "rootCauseCode[].explanation, fixSummary, every codeChanges[].explanation, reproSteps, "
            "testSuggestions and summary. Keep the JSON keys, the severity and confidence values "
            "(critical/high/medium/low), code, file paths, identifiers, log lines and error "
            "messages exactly as specified or as they are in the source.");
  EXPECT_NE(languageInstruction(AnalysisLanguage::french).find(" in French: "), std::string::npos);
  EXPECT_EQ(languageInstruction(AnalysisLanguage::english), "");
}

TEST(SystemText, ContractStatesEveryRuleInOrder) {
  std::string contract(outputContract());
  auto lines = base::splitLines(contract);
  EXPECT_EQ(lines[0], "# Quillora output contract");
  EXPECT_EQ(lines[1], "You are running inside Quillora, a macOS tool that turns a Crashlytics stack "
                      "trace into a fix, reproduction steps, a git branch, a pull request and a "
                      "Jira/Trello ticket.");
  EXPECT_EQ(lines[2], "");
  EXPECT_EQ(lines[3], "Always:");
  // Unwrapping the bullets gives the rules' sentences back.
  std::vector<std::string> bullets;
  for (size_t i = 4; i < lines.size(); ++i) {
    if (lines[i].substr(0, 2) == "- ") {
      bullets.emplace_back(lines[i].substr(2));
    } else {
      ASSERT_EQ(lines[i].substr(0, 2), "  ") << lines[i];
      bullets.back() += " " + std::string(lines[i].substr(2));
    }
    EXPECT_LE(lines[i].size(), 100u);
  }
  ASSERT_EQ(bullets.size(), 9u);
  EXPECT_EQ(bullets[0], "Ground the root cause in the stack trace and the actual source code. If code for the blamed frame is unavailable, say so in `rootCause` and lower `confidence`.");
  EXPECT_EQ(bullets[1], "Make the smallest safe change that prevents the crash. Do not refactor, rename or reformat unrelated code.");
  EXPECT_EQ(bullets[2], "Never silence a crash by swallowing every exception; handle the specific bad state.");
  EXPECT_EQ(bullets[3], "`reproSteps` are for a QA tester holding a device: concrete in-game actions, device/OS conditions, network state, timing. Include setup (build flavour, account state) when it matters.");
  EXPECT_NE(bullets[4].find("\" 123 | \" line-number prefixes"), std::string::npos);
  EXPECT_EQ(bullets[5], "Leave `patch` as an empty string rather than guessing at code you have not seen.");
  EXPECT_EQ(bullets[6].substr(0, 47), "`rootCauseCode` shows the CURRENT code behind t");
  EXPECT_NE(bullets[7].find("\"Illustrative\""), std::string::npos);
  EXPECT_NE(bullets[8].find("Quillora renders backticked text as code."), std::string::npos);
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
  EXPECT_EQ(languageInfo(AnalysisLanguage::app).displayName, "Same as the app");
  EXPECT_EQ(languageInfo(AnalysisLanguage::spanish).promptName, "Spanish");
  EXPECT_EQ(resolvedLanguage(AnalysisLanguage::app, "it"), AnalysisLanguage::italian);
  EXPECT_EQ(resolvedLanguage(AnalysisLanguage::app, "ja"), AnalysisLanguage::english);
  EXPECT_EQ(resolvedLanguage(AnalysisLanguage::app), AnalysisLanguage::english);
}

}  // namespace
}  // namespace quillora::ai
