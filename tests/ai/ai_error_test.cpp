#include <gtest/gtest.h>

#include "ai/ai_error.h"

namespace quillora::ai {
namespace {

// The Claude engines' tests see the texts with Anthropic and Claude in them; these are the other
// engines' names and the statuses that never come from a real answer.
TEST(AIError, EveryCaseShowsItsSentence) {
  struct Case {
    AIError error;
    std::string text;
  };
  std::vector<Case> cases = {
      {AIError::missingAPIKey("OpenAI"), "Add your OpenAI API key in Settings → AI, or pick another engine in the toolbar."},
      {AIError::http("Gemini", 404, "model not found"), "Check the model name in Settings → AI."},
      {AIError::http("Anthropic", 1, "odd"), "Anthropic error 1: odd"},
      {AIError::http("Gemini", 0, "Couldn't connect to server"), "Gemini error: Couldn't connect to server"},
      {AIError::http("Gemini", -1, "timed out"), "Gemini error: timed out"},
      {AIError::refusal("ChatGPT (OpenAI API)"), "ChatGPT (OpenAI API) declined to answer this request."},
      {AIError::failed("Something else."), "Something else."},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(std::string(c.error.what()), c.text);
    EXPECT_EQ(c.error.kind(), "ai");
  }
  EXPECT_EQ(AIError::http("Anthropic", 529, "x").status(), 529);
}

}  // namespace
}  // namespace quillora::ai
