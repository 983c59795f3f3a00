// End-to-end tests of `analyze --dry-run`: the built binary on the bundled example project shows
// exactly what would be sent, needs no key and sends nothing.
#include <gtest/gtest.h>

#include "base/json.h"
#include "support/test_support.h"

namespace quillora::testing {
namespace {

class DryRun : public ::testing::Test {
 protected:
  TempDir home;
  RunResult quillora(std::vector<std::string> args, RunOptions opts = {}) {
    opts.cwd = sourceDir();
    std::vector<std::string> full = {"analyze", "--trace", "examples/crashes/unity-nullref.txt", "--dry-run"};
    full.insert(full.end(), args.begin(), args.end());
    return runQuillora(home.path(), full, opts);
  }
};

const std::string kFound =
    "Found Assets/Scripts/Player/PlayerController.cs (lines 1-86)\n"
    "Found source for 1 frame(s): PlayerController.cs\n";

TEST_F(DryRun, ShowsTheExampleProjectsExcerptAndEverythingElseThatWouldBeSent) {
  auto r = quillora({"--repo", "examples/dungeon-game", "--notes", "After the weapon broke."});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.err, kFound);
  EXPECT_NE(r.out.find("Dry run: nothing was sent to Claude API.\nEngine: Claude API (claude-opus-5-5)\n"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("Schema: fix_analysis\nFiles:\n  Assets/Scripts/Player/PlayerController.cs "
                       "(entire file, lines 1-86, 2935 bytes)\nSummary: Sent the trace, notes and 1 "
                       "source file(s) ("),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find(" KB) to Claude API\nEstimated input tokens: "), std::string::npos);
  EXPECT_NE(r.out.find("Estimated cost: $"), std::string::npos);
  EXPECT_NE(r.out.find("\n=== System text ===\nYou are a senior engineer"), std::string::npos);
  EXPECT_NE(r.out.find("# Quillora output contract\n"), std::string::npos);
  EXPECT_NE(r.out.find("\n=== User text ===\nAnalyze this production crash and propose a fix.\n\n"
                       "<crash_summary>\nPlatform: Unity (IL2CPP / Mono)\n"),
            std::string::npos);
  EXPECT_NE(r.out.find("<developer_notes>\nAfter the weapon broke.\n</developer_notes>\n\n<source_code>\n"
                       "### Assets/Scripts/Player/PlayerController.cs (entire file)\nReferenced by: "
                       "#0 Game.Player.PlayerController.Update () "
                       "(Assets/Scripts/Player/PlayerController.cs:74)\n```cs\n    1 | using UnityEngine;\n"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("\n   74 |             if (Input.GetButton(\"Fire1\") && equippedWeapon.CanFire)\n"),
            std::string::npos);
  EXPECT_EQ(r.out.find("Library/"), std::string::npos);
  EXPECT_EQ(r.out.find("counts as consent"), std::string::npos);
  std::string ending =
            "```\n</source_code>\n\nFill in every field of the JSON schema. Paths in `patch` and "
            "`affectedFiles` are the repo-relative paths shown above.\n";
  EXPECT_EQ(r.out.substr(r.out.size() - ending.size()), ending);
}

TEST_F(DryRun, JsonAddsADryRunObjectBesideTheResultKeys) {
  auto r = quillora({"--repo", "examples/dungeon-game", "--format", "json"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  auto doc = base::parseJson(r.out);
  ASSERT_TRUE(doc) << r.out;
  EXPECT_EQ(missingAnalyzeResultKeys(*doc), std::vector<std::string>{});
  EXPECT_TRUE(doc->contains("dryRun"));
  EXPECT_EQ((*doc)["analysis"], nullptr);
  EXPECT_EQ((*doc)["contextFiles"], base::Json({"Assets/Scripts/Player/PlayerController.cs"}));
  const auto& dry = (*doc)["dryRun"];
  EXPECT_EQ(dry["sent"], false);
  EXPECT_EQ(dry["schemaName"], "fix_analysis");
  EXPECT_EQ(dry["files"][0]["path"], "Assets/Scripts/Player/PlayerController.cs");
  EXPECT_EQ(dry["files"][0]["isWholeFile"], true);
  EXPECT_EQ(dry["files"][0]["endLine"], 86);
  std::string user = dry["user"].get<std::string>();
  std::string system = dry["system"].get<std::string>();
  std::string schema = dry["schema"].get<std::string>();
  EXPECT_EQ(dry["inputBytes"], user.size() + system.size() + schema.size());
  EXPECT_EQ(dry["estimatedInputTokens"], (user.size() + system.size() + schema.size() + 3) / 4);
  EXPECT_TRUE(base::parseJson(schema));
  EXPECT_EQ(dry["summary"].get<std::string>().substr(0, 43), "Sent the trace, notes and 1 source file(s) ");
  EXPECT_TRUE(dry["estimatedCostUSD"].is_object());

  // The text format shows the very same texts.
  auto text = quillora({"--repo", "examples/dungeon-game"});
  EXPECT_NE(text.out.find("\n=== User text ===\n" + user + "\n"), std::string::npos);
  EXPECT_NE(text.out.find("\n=== System text ===\n" + system + "\n"), std::string::npos);
}

TEST_F(DryRun, MarkdownFencesTheTextsWithTildes) {
  auto r = quillora({"--repo", "examples/dungeon-game", "--format", "markdown"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out.substr(0, 53), "# Quillora dry run\n\nNothing was sent to Claude API.\n\n");
  EXPECT_NE(r.out.find("| `Assets/Scripts/Player/PlayerController.cs` | entire file, lines 1-86 | 2935 |\n"),
            std::string::npos);
  EXPECT_NE(r.out.find("## User text\n\n~~~~text\nAnalyze this production crash"), std::string::npos);
}

TEST_F(DryRun, WithoutRepositoryOrForTheAgentTheSourcePieceChanges) {
  auto bare = quillora({});
  ASSERT_EQ(bare.exitCode, 0) << bare.err;
  EXPECT_EQ(bare.err, "No repository: the engine works from the crash alone\n");
  EXPECT_NE(bare.out.find("Files: none\nSummary: Sent the trace, notes and 0 source file(s) ("),
            std::string::npos);
  EXPECT_NE(bare.out.find("<source_code>\nNo source code was found for the in-app frames. Base the "
                          "analysis on the trace alone and leave `patch` empty.\n</source_code>\n"),
            std::string::npos);

  auto agent = quillora({"--repo", "examples/dungeon-game", "--engine", "claude-code"});
  ASSERT_EQ(agent.exitCode, 0) << agent.err;
  EXPECT_EQ(agent.err, kFound);
  EXPECT_NE(agent.out.find("Engine: Claude Code CLI (opus)\n"), std::string::npos);
  EXPECT_NE(agent.out.find("Estimated cost: no price for opus (add one under \"prices\" in the config)\n"),
            std::string::npos);
  EXPECT_NE(agent.out.find("You are running in the root of the game's repository."), std::string::npos);
}

TEST_F(DryRun, SkillFileAndLanguageSettingsShapeTheSystemText) {
  TempDir config;
  auto skill = config.write("skill.md", "\n  You maintain Dungeon Game.  \n");
  auto file = config.write("run.json", "{\"skillFile\": \"" + skill.string() +
                                           "\", \"analysisLanguage\": \"italian\", \"maxContextKB\": 1}");
  auto r = quillora({"--repo", "examples/dungeon-game", "--config", file.string()});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("=== System text ===\nYou maintain Dungeon Game.\n\n# Quillora output contract\n"),
            std::string::npos);
  EXPECT_NE(r.out.find("\n\nWrite the human-readable text in Italian: title,"), std::string::npos);
  // A 1 KB budget is under the 2,000-byte floor: no excerpt at all.
  EXPECT_EQ(r.err, "No matching source files found in examples/dungeon-game\n");

  auto missing = config.write("bad.json", "{\"skillFile\": \"/no/such/skill.md\"}");
  auto bad = quillora({"--config", missing.string()});
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_EQ(bad.err, "No repository: the engine works from the crash alone\nquillora: error: Can't read the "
                     "skill file /no/such/skill.md (setting \"skillFile\"): No such file or directory\n");

  auto klingon = config.write("lang.json", "{\"analysisLanguage\": \"klingon\"}");
  auto unknown = quillora({"--config", klingon.string(), "--repo", "examples/dungeon-game"});
  EXPECT_EQ(unknown.exitCode, 2);
  EXPECT_EQ(unknown.err, kFound + "quillora: error: The setting \"analysisLanguage\" is 'klingon'; it must be "
                                  "one of: english, app, spanish, german, italian, french.\n");
}

}  // namespace
}  // namespace quillora::testing
