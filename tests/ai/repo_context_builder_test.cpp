#include <gtest/gtest.h>

#include <fmt/format.h>

#include "ai/code_snippet.h"
#include "ai/repo_context_builder.h"
#include "ai/repository_index.h"
#include "support/test_support.h"

namespace quillora::ai {
namespace {

using crash::CrashPlatform;
using testing::TempDir;

// "line 1\nline 2\n…" with `count` lines.
std::string numberedLines(int count, const std::string& prefix = "line ") {
  std::string text;
  for (int i = 1; i <= count; ++i) text += prefix + std::to_string(i) + "\n";
  return text;
}

crash::StackFrame inAppFrame(int index, std::string symbol, std::optional<std::string> file,
                             std::optional<int> line) {
  crash::StackFrame frame;
  frame.index = index;
  frame.module = "Assembly-CSharp";
  frame.symbol = std::move(symbol);
  frame.file = std::move(file);
  frame.line = line;
  frame.isInApp = true;
  return frame;
}

crash::CrashReport reportWith(std::vector<crash::StackFrame> frames) {
  crash::CrashReport report;
  report.platform = CrashPlatform::unity;
  crash::ThreadTrace thread;
  thread.name = "main";
  thread.isCrashed = true;
  thread.frames = std::move(frames);
  report.threads.push_back(thread);
  return report;
}

struct Built {
  std::vector<CodeSnippet> snippets;
  std::vector<std::string> progress;
};

Built build(const TempDir& repo, const crash::CrashReport& report, size_t budget = 100 * 1024,
            bool agent = false) {
  Built built;
  RepoContextBuilder builder(repo.path(), report.platform, budget);
  built.snippets = builder.build(report, [&](const std::string& line) { built.progress.push_back(line); }, agent);
  return built;
}

TEST(RepoContextBuilder, WholeFilesUpTo350LinesAndWindowsOf60LinesAroundTheCrash) {
  struct Case {
    int fileLines;
    std::optional<int> crashLine;
    int start, end;
    bool whole;
  };
  std::vector<Case> cases = {
      {350, 200, 1, 350, true},
      {351, 200, 140, 260, false},  // 121 lines
      {351, 10, 1, 70, false},
      {400, 390, 330, 400, false},
      {400, 9999, 340, 400, false},  // a line past the end counts as the last line
  };
  for (const auto& c : cases) {
    TempDir repo;
    repo.write("Assets/Scripts/Enemy.cs", numberedLines(c.fileLines));
    auto built = build(repo, reportWith({inAppFrame(0, "Game.Enemy.Tick ()", "Assets/Scripts/Enemy.cs", c.crashLine)}));
    ASSERT_EQ(built.snippets.size(), 1u) << c.fileLines;
    const auto& s = built.snippets[0];
    EXPECT_EQ(s.startLine, c.start) << c.fileLines << " " << *c.crashLine;
    EXPECT_EQ(s.endLine, c.end) << c.fileLines << " " << *c.crashLine;
    EXPECT_EQ(s.isWholeFile, c.whole);
    EXPECT_EQ(s.text.substr(0, s.text.find('\n')), "line " + std::to_string(c.start));
    EXPECT_EQ(s.reason, "#0 Game.Enemy.Tick () (Assets/Scripts/Enemy.cs:" + std::to_string(*c.crashLine) + ")");
    EXPECT_EQ(built.progress,
              (std::vector<std::string>{fmt::format("Found Assets/Scripts/Enemy.cs (lines {}-{})", c.start, c.end),
                                        "Found source for 1 frame(s): Enemy.cs"}));
  }
}

TEST(RepoContextBuilder, OnlyTheFirstTenInAppFramesAreConsidered) {
  TempDir repo;
  std::vector<crash::StackFrame> frames;
  for (int i = 0; i < 15; ++i) {
    std::string file = fmt::format("Assets/Scripts/System{:02}.cs", i);
    repo.write(file, "class C {}\n");
    frames.push_back(inAppFrame(i, fmt::format("Game.System{:02}.Run ()", i), file, 1));
    crash::StackFrame engine;  // engine frames between them don't count
    engine.index = 100 + i;
    engine.symbol = "UnityEngine.Internal.Tick ()";
    frames.push_back(engine);
  }
  auto built = build(repo, reportWith(frames));
  ASSERT_EQ(built.snippets.size(), 10u);
  EXPECT_EQ(built.snippets.back().path, "Assets/Scripts/System09.cs");
  EXPECT_EQ(built.progress.back(),
            "Found source for 10 frame(s): System00.cs, System01.cs, System02.cs, System03.cs, "
            "System04.cs, System05.cs, System06.cs, System07.cs, System08.cs, System09.cs");
}

TEST(RepoContextBuilder, PrefersTheLongestCommonPathSuffixThenTheShortestPath) {
  struct Case {
    std::string frameFile;
    std::string chosen;
  };
  std::vector<Case> cases = {
      {"/Users/dev/DungeonGame/Assets/Scripts/UI/Menu.cs", "Assets/Scripts/UI/Menu.cs"},
      {"C:\\build\\agent\\Assets\\Plugins\\Vendor\\Menu.cs", "Assets/Plugins/Vendor/Menu.cs"},
      {"Menu.cs", "Menu/Menu.cs"},  // no folder in common: the shortest path
      {"menu.CS", "Menu/Menu.cs"},  // names compare without regard to case
  };
  for (const auto& c : cases) {
    TempDir repo;
    repo.write("Assets/Scripts/UI/Menu.cs", "ui\n");
    repo.write("Assets/Plugins/Vendor/Menu.cs", "vendor\n");
    repo.write("Menu/Menu.cs", "short\n");
    auto built = build(repo, reportWith({inAppFrame(0, "Menu.Open ()", c.frameFile, 1)}));
    ASSERT_EQ(built.snippets.size(), 1u) << c.frameFile;
    EXPECT_EQ(built.snippets[0].path, c.chosen) << c.frameFile;
  }
}

TEST(RepoContextBuilder, JavaPackagesAndClassNamesStandInForMissingFolders) {
  TempDir repo;
  repo.write("app/src/main/java/com/veld/game/Player.java", numberedLines(5));
  repo.write("app/src/main/java/com/veld/tools/Player.java", numberedLines(3));
  crash::CrashReport report = reportWith({inAppFrame(0, "com.veld.game.Player.jump", "Player.java", 4)});
  report.platform = CrashPlatform::androidJava;
  EXPECT_EQ(build(repo, report).snippets.at(0).path, "app/src/main/java/com/veld/game/Player.java");

  // Without a file, the class names the file and the method's declaration is the target line.
  TempDir unity;
  std::string big = numberedLines(400, "// filler ");
  big.replace(big.find("// filler 300\n"), 14, "    void Spawn(int wave) {\n");
  unity.write("Assets/Scripts/WaveSpawner.cs", big);
  auto built = build(unity, reportWith({inAppFrame(0, "Game.WaveSpawner.Spawn (System.Int32 wave)", std::nullopt, std::nullopt)}));
  ASSERT_EQ(built.snippets.size(), 1u);
  EXPECT_EQ(built.snippets[0].startLine, 240);
  EXPECT_EQ(built.snippets[0].endLine, 360);
  EXPECT_EQ(built.snippets[0].reason, "#0 Game.WaveSpawner.Spawn (System.Int32 wave)");

  // IL2CPP frames name the type and method in one identifier.
  unity.write("Assets/UI/InventorySlot.cs", "class InventorySlot {\n  void Refresh() {}\n}\n");
  auto native = build(unity, reportWith({inAppFrame(0, "InventorySlot_Refresh_m7F2C1A9B3E", std::nullopt, std::nullopt)}));
  ASSERT_EQ(native.snippets.size(), 1u);
  EXPECT_EQ(native.snippets[0].path, "Assets/UI/InventorySlot.cs");
  EXPECT_TRUE(native.snippets[0].isWholeFile);
}

TEST(RepoContextBuilder, SkipsLargeBinaryAndEmptyFiles) {
  TempDir repo;
  repo.write("Assets/Big.cs", std::string(2'000'000, 'a'));
  repo.write("Assets/AlmostBig.cs", std::string(1'999'999, 'a'));
  repo.write("Assets/Blob.cs", std::string("abc\0def\n", 8));
  repo.write("Assets/Empty.cs", "");
  auto built = build(repo, reportWith({inAppFrame(0, "Big.Run ()", "Assets/Big.cs", 1),
                                       inAppFrame(1, "Blob.Run ()", "Assets/Blob.cs", 1),
                                       inAppFrame(2, "Empty.Run ()", "Assets/Empty.cs", 1),
                                       inAppFrame(3, "AlmostBig.Run ()", "Assets/AlmostBig.cs", 1)}),
                     4 * 1024 * 1024);
  ASSERT_EQ(built.snippets.size(), 1u);
  EXPECT_EQ(built.snippets[0].path, "Assets/AlmostBig.cs");
}

TEST(RepoContextBuilder, KeepsWithinTheBudgetAndStopsBelow2000Bytes) {
  TempDir repo;
  // 300 lines of 40 bytes: about 13 KB whole, about 5 KB for a 121-line window.
  for (const char* name : {"A", "B", "C", "D"})
    repo.write(std::string("Assets/") + name + ".cs", numberedLines(300, std::string(30, '/') + " "));
  auto report = reportWith({inAppFrame(0, "A.Run ()", "Assets/A.cs", 150), inAppFrame(1, "B.Run ()", "Assets/B.cs", 150),
                            inAppFrame(2, "C.Run ()", "Assets/C.cs", 150), inAppFrame(3, "D.Run ()", "Assets/D.cs", 150)});
  auto built = build(repo, report, 20 * 1024);
  size_t total = 0;
  for (const auto& s : built.snippets) total += renderSnippet(s).size() + 1;
  EXPECT_LE(total, 20u * 1024);
  ASSERT_GE(built.snippets.size(), 2u);
  EXPECT_TRUE(built.snippets[0].isWholeFile);
  EXPECT_FALSE(built.snippets[1].isWholeFile);  // narrowed to what was left
  EXPECT_LE(built.snippets[1].startLine, 150);
  EXPECT_GE(built.snippets[1].endLine, 150);
  EXPECT_GT(20u * 1024 - total, 0u);
  EXPECT_LT(20u * 1024 - total, 2000u + 13 * 1024);

  // A budget under 2,000 bytes takes nothing at all.
  EXPECT_TRUE(build(repo, report, 1999).snippets.empty());
}

TEST(RepoContextBuilder, FramesInsideATakenExcerptCountButAddNothing) {
  TempDir repo;
  repo.write("Assets/Player.cs", numberedLines(500));
  auto built = build(repo, reportWith({inAppFrame(0, "Player.Move ()", "Assets/Player.cs", 100),
                                       inAppFrame(1, "Player.Update ()", "Assets/Player.cs", 120),
                                       inAppFrame(2, "Player.Start ()", "Assets/Player.cs", 400)}));
  ASSERT_EQ(built.snippets.size(), 2u);
  EXPECT_EQ(built.snippets[1].startLine, 340);
  EXPECT_EQ(built.progress.back(), "Found source for 3 frame(s): Player.cs");
}

// Numbers wider than the five-column field push the bar right; unknown languages get a bare fence.
TEST(CodeSnippet, RendersNumbersWiderThanTheirColumn) {
  EXPECT_EQ(renderSnippet({"Source/Makefile", 99998, 100000, "a\n\nc", "r", false}),
            "### Source/Makefile (lines 99998-100000)\nReferenced by: r\n```\n99998 | a\n99999 | \n100000 | c\n```");
}

TEST(RepositoryIndex, SkipsBuildAndToolFoldersAtAnyDepthAndStopsAtTheLimit) {
  TempDir repo;
  // A few of the skipped names: hidden, nested, engine-specific; the match is exact.
  for (std::string name : {".git", "Library", "node_modules", "DerivedDataCache", "xcuserdata"}) {
    repo.write(name + "/x.cs", "x");
    repo.write("deep/er/" + name + "/y.cs", "y");
  }
  repo.write("library/z.cs", "a folder whose name differs in case is kept");
  repo.write("Assets/Build.cs", "a file named like a skipped folder is kept");
  repo.write("deep/er/Keep.cs", "k");
  std::filesystem::create_symlink(repo.path() / "deep", repo.path() / "loop");
  auto index = RepositoryIndex::build(repo.path());
  std::vector<std::string> paths;
  for (size_t i = 0; i < index.size(); ++i) paths.emplace_back(index.path(i));
  std::sort(paths.begin(), paths.end());
  EXPECT_EQ(paths, (std::vector<std::string>{"Assets/Build.cs", "deep/er/Keep.cs", "library/z.cs"}));
  EXPECT_FALSE(index.reachedLimit());

  TempDir many;
  for (int i = 0; i < 6; ++i) many.write("f" + std::to_string(i) + ".cs", "");
  for (size_t limit : {size_t{5}, size_t{6}}) {
    auto index = RepositoryIndex::build(many.path(), limit);
    EXPECT_EQ(index.size(), limit);
    EXPECT_EQ(index.reachedLimit(), limit == 5);
  }
  EXPECT_EQ(RepositoryIndex::build(many.path() / "missing").size(), 0u);
}

}  // namespace
}  // namespace quillora::ai
