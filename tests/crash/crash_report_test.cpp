// The crash model: derived values (location, crashed thread, blamed frame, title, summary) and JSON.
#include <gtest/gtest.h>

#include "base/json.h"
#include "crash/crash_report.h"
#include "crash/normalized_crash.h"

namespace quillora::crash {
namespace {

StackFrame frame(int index, std::string module, std::string symbol, bool inApp,
                 std::optional<std::string> file = std::nullopt, std::optional<int> line = std::nullopt) {
  StackFrame f;
  f.index = index;
  f.module = std::move(module);
  f.symbol = std::move(symbol);
  f.isInApp = inApp;
  f.file = std::move(file);
  f.line = line;
  f.raw = "  raw line " + std::to_string(index) + "  ";
  return f;
}

TEST(StackFrame, LocationNeedsAFileAndAPositiveLine) {
  struct Case {
    std::optional<std::string> file;
    std::optional<int> line;
    std::optional<std::string> location;
  };
  // With a line and a symbol, and a frame without a symbol, in the summary's test below.
  for (const Case& c : std::vector<Case>{{"Foo.cs", 0, "Foo.cs"},
                                         {"Foo.cs", std::nullopt, "Foo.cs"},
                                         {"Foo.cs", -1, "Foo.cs"},
                                         {std::nullopt, 12, std::nullopt}}) {
    EXPECT_EQ(frame(0, "m", "s", true, c.file, c.line).location(), c.location);
  }
}

TEST(CrashReport, ShortSymbolDropsParametersFromTheFifthCharacterAndCutsLongNames) {
  struct Case {
    std::string symbol;
    size_t limit;
    std::string expected;
  };
  for (const Case& c : std::vector<Case>{
           {"Game.Player.Update (System.Single dt)", 80, "Game.Player.Update"},
           {"f(x)", 80, "f(x)"},
           {"abc(x)", 80, "abc(x)"},
           {"abcd(x)", 80, "abcd"},
           {"f(x).then(y)", 80, "f(x).then"},
           {"  padded  ", 80, "padded"},
           {"Ünïcödé.Method(int)", 80, "Ünïcödé.Method"},
           {"abcdefghij", 4, "abcd…"},
           {"abcd", 4, "abcd"},
           {"ääääää", 3, "äää…"},
       }) {
    EXPECT_EQ(shortSymbol(c.symbol, c.limit), c.expected) << c.symbol;
  }
}

TEST(CrashReport, CrashedThreadIsTheFirstMarkedOneElseTheFirstElseNone) {
  CrashReport report;
  EXPECT_EQ(report.crashedThread(), nullptr);
  EXPECT_EQ(report.blamedFrame(), nullptr);
  EXPECT_EQ(report.title(), "Crash");
  EXPECT_EQ(report.summaryText(), "Platform: Unknown\nException: (unknown)");
  report.threads.resize(3);
  report.threads[0].name = "a";
  report.threads[1].name = "b";
  EXPECT_EQ(report.crashedThread()->name, "a");
  report.threads[2].isCrashed = true;
  report.threads[1].isCrashed = true;
  EXPECT_EQ(report.crashedThread()->name, "b");
}

TEST(CrashReport, BlamedFrameNeverFallsBackToASystemFrameOrAnotherThread) {
  CrashReport report;
  report.exceptionType = "NullReferenceException";
  report.threads.resize(2);
  report.threads[0].isCrashed = true;
  report.threads[0].frames = {frame(0, "UnityEngine", "UnityEngine.Object.get_name", false)};
  report.threads[1].frames = {frame(0, "Game", "Game.Player.Update", true)};
  EXPECT_EQ(report.blamedFrame(), nullptr);
  EXPECT_EQ(report.title(), "NullReferenceException");
  report.threads[0].frames.push_back(frame(1, "Game", "Game.Player.Update (System.Single dt)", true));
  ASSERT_NE(report.blamedFrame(), nullptr);
  EXPECT_EQ(report.blamedFrame()->index, 1);
  EXPECT_EQ(report.title(), "NullReferenceException in Game.Player.Update");
  report.exceptionType = "";
  report.threads[0].frames[1].symbol = std::string(100, 'x');
  EXPECT_EQ(report.title(), "Crash in " + std::string(80, 'x') + "…");
}

TEST(CrashReport, SummaryTextListsTheFirstTwentyFiveFramesOfTheCrashedThread) {
  CrashReport report;
  report.platform = CrashPlatform::unity;
  report.exceptionType = "NullReferenceException";
  report.exceptionMessage = "Object reference not set to an instance of an object.";
  report.threads.resize(1);
  report.threads[0].name = "Main Thread";
  report.threads[0].isCrashed = true;
  report.threads[0].frames.push_back(frame(0, "UnityEngine", "UnityEngine.Debug.Log", false));
  report.threads[0].frames.push_back(frame(1, "Game", "Game.Player.Update ()", true,
                                           "Assets/Scripts/Player.cs", 74));
  for (int i = 2; i < 40; ++i) report.threads[0].frames.push_back(frame(i, "M", "", false));
  std::string summary = report.summaryText();
  std::string head =
      "Platform: Unity (IL2CPP / Mono)\n"
      "Exception: NullReferenceException\n"
      "Message: Object reference not set to an instance of an object.\n"
      "Blamed frame: Game.Player.Update () (Assets/Scripts/Player.cs:74)\n"
      "Crashed thread: Main Thread\n"
      "0   UnityEngine  UnityEngine.Debug.Log\n"
      "1 ★ Game  Game.Player.Update () (Assets/Scripts/Player.cs:74)\n"
      "2   M  raw line 2\n";
  EXPECT_EQ(summary.substr(0, head.size()), head);
  EXPECT_NE(summary.find("\n24   M  raw line 24"), std::string::npos);
  EXPECT_EQ(summary.find("raw line 25"), std::string::npos);
  EXPECT_EQ(summary.back(), '4');
}

TEST(CrashReport, EncodesItsKeysAndDecodesWithFreshIdentities) {
  CrashReport report;
  report.platform = CrashPlatform::androidNative;
  report.exceptionType = "SIGSEGV";
  report.rawText = "text";
  report.threads.resize(1);
  report.threads[0].name = "main";
  report.threads[0].frames = {frame(3, "libgame.so", "Inventory::addItem(Item*)", true, "inv.cpp", 9),
                              frame(4, "libc.so", "abort", false)};
  base::Json json = report;
  EXPECT_EQ(base::dumpJsonCompact(json),
            R"j({"exceptionMessage":"","exceptionType":"SIGSEGV","platform":"Android NDK (C / C++)",)j"
            R"j("rawText":"text","threads":[{"frames":[{"file":"inv.cpp","index":3,"isInApp":true,)j"
            R"j("line":9,"module":"libgame.so","raw":"  raw line 3  ","symbol":"Inventory::addItem(Item*)"},)j"
            R"j({"file":null,"index":4,"isInApp":false,"line":null,"module":"libc.so","raw":"  raw line 4  ",)j"
            R"j("symbol":"abort"}],"isCrashed":false,"name":"main"}]})j");
  CrashReport first = json.get<CrashReport>();
  CrashReport second = json.get<CrashReport>();
  EXPECT_EQ(base::Json(first), json);
  EXPECT_NE(first.threads[0].id, second.threads[0].id);
  EXPECT_NE(first.threads[0].frames[0].id, second.threads[0].frames[0].id);
  EXPECT_NE(first.threads[0].frames[0].id, report.threads[0].frames[0].id);
  EXPECT_EQ(first.threads[0].frames[0].id.view().size(), 36u);
  EXPECT_EQ(first.threads[0].frames[0].id.view()[14], '4');
}

TEST(CrashReport, DecodingIsLenient) {
  auto parsed = base::parseJson(
      R"({"platform":"Commodore 64","exceptionType":7,"threads":[1,{"name":"t","frames":["x",{"line":"12"}]}]})");
  ASSERT_TRUE(parsed);
  CrashReport report = parsed->get<CrashReport>();
  EXPECT_EQ(report.platform, CrashPlatform::unknown);
  EXPECT_EQ(report.exceptionType, "7");
  ASSERT_EQ(report.threads.size(), 1u);
  ASSERT_EQ(report.threads[0].frames.size(), 1u);
  EXPECT_EQ(report.threads[0].frames[0].line, 12);
}

TEST(CrashPlatform, DisplayNamesRoundTrip) {
  for (CrashPlatform p : kAllCrashPlatforms) EXPECT_EQ(crashPlatformFromDisplayName(displayName(p)), p);
}

TEST(NormalizedCrash, RoundTripsThroughJson) {
  NormalizedCrash crash;
  crash.platformHint = "unity";
  crash.exceptions.push_back({"NullReferenceException", "msg", {{"Update", "Game", "P.cs", 3, std::nullopt, true, "0x1"}}, true});
  crash.threads.push_back({"main", true, {{"f", "m", std::nullopt, std::nullopt, 4, std::nullopt, std::nullopt}}});
  crash.tags = {{"os", "iOS 17"}};
  crash.breadcrumbs = {"opened shop"};
  base::Json json = crash;
  EXPECT_EQ(json["tags"], base::Json::parse(R"([["os","iOS 17"]])"));
  EXPECT_EQ(json["threads"][0]["frames"][0]["inApp"], nullptr);
  NormalizedCrash back = json.get<NormalizedCrash>();
  EXPECT_EQ(base::Json(back), json);
}

}  // namespace
}  // namespace quillora::crash
