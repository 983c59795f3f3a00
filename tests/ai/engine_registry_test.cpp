#include "ai/claude_code_provider.h"
#include "ai/engine_registry.h"
#include "base/settings.h"

#include <gtest/gtest.h>

namespace quillora::ai {
namespace {

// The Claude engines' notes are seen through the binary in tests/cli.
TEST(EngineRegistry, ConsentNotesNameWhoGetsTheCrash) {
  EXPECT_EQ(consentNote(AIBackend::gemini, "gemini-4-argon"),
            "Note: the crash (stack trace, crash context, notes) and matching source code are sent "
            "to Google (gemini-4-argon). Running the Quillora command line counts as consent to "
            "that.\n");
}

TEST(EngineRegistry, EnginesNotInThisBuildAreRefusedByName) {
  try {
    makeEngine(AIBackend::openAI, {});
    ADD_FAILURE() << "no error";
  } catch (const EngineUnavailableError& e) {
    EXPECT_STREQ(e.what(), "The ChatGPT (OpenAI API) engine isn't available in this build yet; use "
                           "--engine claude-api or --engine claude-code.");
  }
}

TEST(EngineRegistry, BuildsClaudeCodeFromItsSettings) {
  struct Case {
    base::Json settings;
    std::string modelOption;
    std::string model;
    std::string claudePath;
    std::optional<double> cap;
  };
  std::vector<Case> cases = {
      {base::Json::object(), "", "opus", "", std::nullopt},
      {{{"cliModel", "sonnet"}, {"claudePath", " ~/bin/claude "}}, "", "sonnet", "~/bin/claude",
       std::nullopt},
      {{{"cliModel", "sonnet"}, {"claudeCode", {{"maxBudgetUSD", 0.5}}}}, "haiku", "haiku", "",
       0.5},
      {{{"cliModel", ""}, {"claudeCode", {{"maxBudgetUSD", 0}}}}, "", "opus", "", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.settings.dump());
    base::Settings::shared().reset(c.settings);
    EngineOptions options;
    options.model = c.modelOption;
    auto engine = makeEngine(AIBackend::claudeCode, std::move(options));
    ASSERT_EQ(engine->backend(), AIBackend::claudeCode);
    EXPECT_EQ(engine->modelName(), c.model);
    auto& provider = dynamic_cast<ClaudeCodeProvider&>(*engine);
    EXPECT_EQ(provider.claudePath, c.claudePath);
    EXPECT_EQ(provider.maxBudgetUSD, c.cap);
  }
  base::Settings::shared().reset();
}

} // namespace
} // namespace quillora::ai
