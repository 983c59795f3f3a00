#include <gtest/gtest.h>

#include "ai/ai_error.h"
#include "ai/analysis_schema.h"
#include "ai/fix_analysis.h"

namespace quillora::ai {
namespace {

std::string badResponseOf(std::string_view answer) {
  try {
    decodeFixAnalysis(answer);
  } catch (const AIError& e) {
    EXPECT_EQ(e.errorCase(), AIError::Case::badResponse);
    return e.what();
  }
  return "(decoded)";
}

TEST(FixAnalysis, MissingConfidenceAndSeverityDecodeAsLowAndMedium) {
  FixAnalysis expected;
  expected.title = "NullReferenceException in Update";
  expected.severity = "medium";
  expected.confidence = "low";
  EXPECT_EQ(decodeFixAnalysis(R"({"title": "NullReferenceException in Update"})"), expected);
}

TEST(FixAnalysis, AnswersWrappedInProseOrFencesDecodeThroughTheBraceSlice) {
  std::vector<std::string> answers = {
      "Here is the analysis:\n```json\n{\"title\": \"T\", \"severity\": \"high\"}\n```\nGood luck!",
      "  \n{\"title\": \"T\", \"severity\": \"high\"}\n\n",
      "Sure. {\"title\": \"T\", \"severity\": \"high\", \"patch\": \"{ braces }\"} done",
  };
  for (const auto& answer : answers) {
    FixAnalysis a = decodeFixAnalysis(answer);
    EXPECT_EQ(a.title, "T") << answer;
    EXPECT_EQ(a.severity, "high") << answer;
  }
}

TEST(FixAnalysis, UndecodableAnswersAreBadResponses) {
  for (std::string_view empty : {"", " \n\t "})
    EXPECT_EQ(badResponseOf(empty), "Couldn't read the AI's response: empty response");
  // Prose, braces the wrong way round, no title, an array.
  for (std::string_view bad : {"I can't help with that.", "} backwards {", R"({"severity": "high"})", R"(["title"])"})
    EXPECT_EQ(badResponseOf(bad), "Couldn't read the AI's response: not JSON") << bad;
}

TEST(FixAnalysis, ItemsNeedAllSixKeysAndBadItemsAreSkipped) {
  FixAnalysis a = decodeFixAnalysis(R"json({
    "title": "T",
    "rootCauseCode": [
      {"file": "A.cs", "line": 40, "language": "csharp", "code": "x.y();", "crashLine": 42, "explanation": "x is null."},
      {"file": "B.cs", "line": 1, "language": "csharp", "code": "z", "explanation": "no crashLine"},
      "not an object",
      {"file": "C.cs", "line": "7", "language": "csharp", "code": "c", "crashLine": 0, "explanation": "line as text"}
    ],
    "codeChanges": [
      {"file": "A.cs", "line": 40, "language": "csharp", "explanation": "Guard.", "before": "", "after": "if (x != null)"},
      {"file": "A.cs", "line": 40, "language": "csharp", "explanation": "No after.", "before": "x"}
    ],
    "reproSteps": ["Open the game", 2, {"x": 1}, null],
    "affectedFiles": "not a list"
  })json");
  ASSERT_EQ(a.rootCauseCode.size(), 2u);
  EXPECT_EQ(a.rootCauseCode[0], (CodeExcerpt{"A.cs", 40, "csharp", "x.y();", 42, "x is null."}));
  EXPECT_EQ(a.rootCauseCode[1].file, "C.cs");
  EXPECT_EQ(a.rootCauseCode[1].line, 7);
  ASSERT_EQ(a.codeChanges.size(), 1u);
  EXPECT_EQ(a.codeChanges[0].after, "if (x != null)");
  EXPECT_EQ(a.reproSteps, (std::vector<std::string>{"Open the game", "2"}));
  EXPECT_TRUE(a.affectedFiles.empty());
}

TEST(FixAnalysis, EncodesWithTheFieldNamesAndDecodesBackUnchanged) {
  FixAnalysis a;
  a.title = "Crash in `Update()`";
  a.severity = "critical";
  a.confidence = "high";
  a.rootCause = "`rb` is null.";
  a.rootCauseCode = {{"Assets/P.cs", 40, "csharp", "a\nb\nc", 42, "Null."}};
  a.fixSummary = "Guard it.";
  a.reproSteps = {"Start", "Die"};
  a.affectedFiles = {"Assets/P.cs"};
  a.patch = "diff --git a/Assets/P.cs b/Assets/P.cs\n";
  a.testSuggestions = {"Play mode test"};
  a.codeChanges = {{"Assets/P.cs", 41, "csharp", "Guard.", "x", "y"}};
  base::Json json = toJson(a);
  EXPECT_EQ(decodeFixAnalysis(base::dumpJson(json)), a);

  // The keys written are the keys the schema asks the AI for.
  base::Json schema = base::Json::parse(fixAnalysisSchema())["properties"];
  auto keysOf = [](const base::Json& object) {
    std::vector<std::string> keys;
    for (const auto& item : object.items()) keys.push_back(item.key());
    return keys;
  };
  EXPECT_EQ(keysOf(json), keysOf(schema));
  EXPECT_EQ(keysOf(json["rootCauseCode"][0]), keysOf(schema["rootCauseCode"]["items"]["properties"]));
  EXPECT_EQ(keysOf(json["codeChanges"][0]), keysOf(schema["codeChanges"]["items"]["properties"]));
}

TEST(FixImplementation, DecodesLenientlyFromTheAnswer) {
  auto i = decodeFixImplementation("Done.\n{\"summary\": \"Added a guard.\", \"filesChanged\": [\"A.cs\"]}");
  EXPECT_EQ(i.summary, "Added a guard.");
  EXPECT_EQ(i.filesChanged, std::vector<std::string>{"A.cs"});
  EXPECT_EQ(base::dumpJsonCompact(toJson(i)), R"({"filesChanged":["A.cs"],"summary":"Added a guard."})");
  EXPECT_THROW(decodeFixImplementation("no json here"), AIError);
}

}  // namespace
}  // namespace quillora::ai
