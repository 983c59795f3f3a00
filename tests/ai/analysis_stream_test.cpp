#include <gtest/gtest.h>

#include "ai/analysis_stream.h"

namespace quillora::ai {
namespace {

struct Recorder {
  std::vector<std::string> lines;
  AnalysisStream stream(const std::string& engine = "Claude API") {
    return AnalysisStream(engine, analysisProgressLabels(engine + " is writing the analysis"),
                          [this](const std::string& line) { lines.push_back(line); });
  }
};

TEST(AnalysisStream, AnnouncesEachStageOnceAsTheAnswerArrives) {
  Recorder r;
  auto s = r.stream();
  s.thinking();
  s.thinking();
  for (std::string_view chunk : {"{\"tit", "le\": \"Null ref", "erence in `Update()`\", \"sev",
                                 "erity\": \"high\", \"rootCause\"", ": \"The \\\"patch\\\" field",
                                 " is null\", \"rootCauseCode\": [], \"fixSummary\": \"x\",",
                                 " \"patch\": \"\", \"reproSteps\": [], \"title\": \"again\""}) {
    s.receive(chunk);
  }
  s.receive(", \"rootCause\": \"repeat\"}");
  EXPECT_EQ(r.lines, (std::vector<std::string>{
                         "Claude API is thinking through the crash…",
                         "Claude API is writing the analysis",
                         "Title: Null reference in `Update()`",
                         "Explaining the root cause",
                         "Quoting the code that crashes",
                         "Describing the fix",
                         "Building the patch",
                         "Writing repro steps for QA",
                     }));
  EXPECT_EQ(s.text().substr(0, 6), "{\"titl");
}

TEST(AnalysisStream, TitlesOf91CharactersOrMoreAreCutTo90) {
  struct Case {
    std::string title;
    std::string announced;
  };
  std::string ninety(90, 'a');
  std::vector<Case> cases = {
      {ninety, "Title: " + ninety},
      {ninety + "b", "Title: " + ninety + "…"},
      {std::string(95, 'x'), "Title: " + std::string(90, 'x') + "…"},
      {std::string(45, 'a') + std::string(50, 'e') + "\xCC\x81", "Title: " + std::string(45, 'a') + std::string(45, 'e') + "…"},
      {"Tab\\tand \\u00e9", "Title: Tab\tand é"},
  };
  for (const auto& c : cases) {
    Recorder r;
    auto s = r.stream("Gemini API");
    s.receive("{\"title\" : \"" + c.title + "\"}");
    ASSERT_EQ(r.lines.size(), 2u) << c.title;
    EXPECT_EQ(r.lines[0], "Gemini API is writing the analysis");
    EXPECT_EQ(r.lines[1], c.announced);
  }
}

TEST(AnalysisStream, WithoutLabelsOnlyThinkingIsAnnounced) {
  std::vector<std::string> lines;
  AnalysisStream s("Claude Code CLI", ProgressLabels{}, [&](const std::string& l) { lines.push_back(l); });
  s.receive("{\"summary\": \"done\", \"title\": \"x\"}");
  s.thinking();
  EXPECT_EQ(lines, std::vector<std::string>{"Claude Code CLI is thinking through the crash…"});
}

}  // namespace
}  // namespace quillora::ai
