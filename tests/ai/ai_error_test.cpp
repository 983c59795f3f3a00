#include <gtest/gtest.h>

#include "ai/ai_error.h"

namespace quillora::ai {
namespace {

TEST(AIError, EveryCaseShowsItsSentence) {
  struct Case {
    AIError error;
    std::string text;
  };
  std::vector<Case> cases = {
      {AIError::missingAPIKey("OpenAI"), "Add your OpenAI API key in Settings → AI, or pick another engine in the toolbar."},
      {AIError::http("Anthropic", 401, "invalid x-api-key"), "Check the API key in Settings → AI."},
      {AIError::http("Anthropic", 403, "forbidden"), "Check the API key in Settings → AI."},
      {AIError::http("Gemini", 404, "model not found"), "Check the model name in Settings → AI."},
      {AIError::http("OpenAI", 429, "slow down"), "You've hit a rate limit or run out of credit; wait a bit or check your plan."},
      {AIError::http("Anthropic", 529, "Overloaded"), "Anthropic error 529: Overloaded"},
      {AIError::http("Anthropic", 1, "odd"), "Anthropic error 1: odd"},
      {AIError::http("Gemini", 0, "Couldn't connect to server"), "Gemini error: Couldn't connect to server"},
      {AIError::http("Gemini", -1, "timed out"), "Gemini error: timed out"},
      {AIError::refusal("ChatGPT (OpenAI API)"), "ChatGPT (OpenAI API) declined to answer this request."},
      {AIError::badResponse("not JSON"), "Couldn't read the AI's response: not JSON"},
      {AIError::cli("exited with status 2"), "Claude Code: exited with status 2"},
      {AIError::failed("Something else."), "Something else."},
      {AIError::missingRepo(), "Claude Code mode needs your project folder. Choose a repository first."},
      {AIError::truncated(), "The response was cut off before it finished. Try again, pick a larger model, or use Claude Code mode for large fixes."},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(std::string(c.error.what()), c.text);
    EXPECT_EQ(c.error.kind(), "ai");
  }
  EXPECT_EQ(AIError::http("Anthropic", 529, "x").status(), 529);
  EXPECT_EQ(AIError::truncated().errorCase(), AIError::Case::truncated);
}

TEST(AIError, IsCaughtAsTheProgramsError) {
  try {
    throw AIError::missingRepo();
  } catch (const Error& e) {
    EXPECT_EQ(e.kind(), "ai");
  }
}

}  // namespace
}  // namespace quillora::ai
