// The stack-trace parser: frame forms and their clean-up, thread headers, exception table.
#include <gtest/gtest.h>

#include "crash/frame_reader.h"
#include "crash/stack_trace_parser.h"

namespace quillora::crash {
namespace {

struct FrameCase {
  const char* name;
  CrashPlatform platform;
  std::string line;
  std::optional<int> index;  // nullopt: the line carries none
  std::string module;
  std::string symbol;
  std::optional<std::string> file;
  std::optional<int> lineNumber;
};

TEST(StackTraceParser, ReadsEveryFrameFormWithItsCleanUp) {
  // The plainest form of several platforms is read in the real traces of CorpusTraces.
  const std::vector<FrameCase> cases = {
      {"Apple, compiler-generated and offset removed", CrashPlatform::iOSNative,
       "3   MyGame   0x0000000102f1c3a0 closure #1 in Shop.buy() + 20 (<compiler-generated>)", 3, "MyGame",
       "closure #1 in Shop.buy()", std::nullopt, std::nullopt},
      {"Apple without address", CrashPlatform::iOSNative,
       "4  MyGame  Shop.buy(item:) + 8 (Shop.swift:41)", 4, "MyGame", "Shop.buy(item:)", "Shop.swift", 41},
      {"Android native with BuildId", CrashPlatform::androidNative,
       "#00 pc 0x00000000001a2b3c /data/app/com.game-1/lib/arm64/libgame.so (Inventory::addItem(Item*)+44) (BuildId: 9f8e7d6c)",
       0, "/data/app/com.game-1/lib/arm64/libgame.so", "Inventory::addItem(Item*)", std::nullopt, std::nullopt},
      {"Android native with offset and source", CrashPlatform::androidNative,
       "#07 pc 00000000000f4a10  /data/app/base.apk (offset 0xf4000) (Java_com_game_Native_run + 16) (native.cpp:120)",
       7, "/data/app/base.apk", "Java_com_game_Native_run", "native.cpp", 120},
      {"Android native without symbol", CrashPlatform::androidNative,
       "#02 pc 0004b644  /system/lib/libc.so", 2, "/system/lib/libc.so", "", std::nullopt, std::nullopt},
      {"Java R8 placeholder gives no file", CrashPlatform::androidJava, "at com.mygame.Shop.open(SourceFile:42)",
       std::nullopt, "com.mygame.Shop", "com.mygame.Shop.open", std::nullopt, std::nullopt},
      {"Java unknown source", CrashPlatform::androidJava,
       "at a.b.C$$ExternalSyntheticLambda0.run(Unknown Source:6)", std::nullopt, "a.b.C$$ExternalSyntheticLambda0",
       "a.b.C$$ExternalSyntheticLambda0.run", std::nullopt, std::nullopt},
      {"Kotlin with jar suffix", CrashPlatform::androidJava,
       "at com.game.Main.run(Main.kt:7) ~[game.jar:?]", std::nullopt, "com.game.Main", "com.game.Main.run",
       "Main.kt", 7},
      {"Java file without line", CrashPlatform::androidJava, "at com.game.Main.run(Main.java)", std::nullopt,
       "com.game.Main", "com.game.Main.run", "Main.java", std::nullopt},
      {".NET style with IL offset", CrashPlatform::unity,
       "at Game.Shop.Buy (System.Int32 id) [0x0001a] in /Users/dev/Game/Assets/Shop.cs:42", std::nullopt,
       "Game.Shop", "Game.Shop.Buy (System.Int32 id)", "/Users/dev/Game/Assets/Shop.cs", 42},
      {".NET style with line word", CrashPlatform::unity, "at Game.Shop.Buy() in C:\\Game\\Shop.cs:line 42",
       std::nullopt, "Game.Shop", "Game.Shop.Buy ()", "C:\\Game\\Shop.cs", 42},
      {"Unity without location", CrashPlatform::unity, "UnityEngine.Debug:Log(Object)", std::nullopt,
       "UnityEngine.Debug", "UnityEngine.Debug:Log (Object)", std::nullopt, std::nullopt},
      {"Java line inside a Unity trace keeps Java", CrashPlatform::unity,
       "at com.unity3d.player.UnityPlayer.run(UnityPlayer.java:12)", std::nullopt, "com.unity3d.player.UnityPlayer",
       "com.unity3d.player.UnityPlayer.run", "UnityPlayer.java", 12},
      {"Windows with address and braces", CrashPlatform::unreal,
       "0x00007ff6a1b2c3d4 UnrealEditor-Engine.dll!UWorld::Tick() {0x1234}", std::nullopt, "UnrealEditor-Engine.dll",
       "UWorld::Tick()", std::nullopt, std::nullopt},
  };
  for (const FrameCase& c : cases) {
    std::string raw = "    " + c.line + "  ";
    auto reading = readFrame(c.line, raw, c.platform);
    ASSERT_TRUE(reading) << c.name;
    const StackFrame& f = reading->frame;
    EXPECT_EQ(reading->hasIndex, c.index.has_value()) << c.name;
    if (c.index) EXPECT_EQ(f.index, *c.index) << c.name;
    EXPECT_EQ(f.module, c.module) << c.name;
    EXPECT_EQ(f.symbol, c.symbol) << c.name;
    EXPECT_EQ(f.file, c.file) << c.name;
    EXPECT_EQ(f.line, c.lineNumber) << c.name;
    EXPECT_EQ(f.raw, raw) << c.name;
  }
}

TEST(StackTraceParser, LinesThatAreNoFrameOfThePlatformAreSkipped) {
  const std::vector<std::pair<CrashPlatform, std::string>> cases = {
      {CrashPlatform::iOSNative, "Binary Images:"},
      {CrashPlatform::iOSNative, "0x102230000 - 0x10223ffff MyGame arm64"},
      {CrashPlatform::androidJava, "at com.game.Thing"},
      {CrashPlatform::androidJava, "Process: com.game, PID: 1234"},
      {CrashPlatform::androidNative, "    x0  0000000000000000  x1  0000000000000000"},
      {CrashPlatform::iOSNative, "MyGame!Foo() [C:\\a.cpp:1]"},  // Windows form isn't tried for iOS
      {CrashPlatform::unknown, std::string(kMaxFrameLineLength + 1, 'x') + "!y"},
  };
  for (const auto& [platform, line] : cases) {
    EXPECT_FALSE(readFrame(line, line, platform)) << line;
  }
}

TEST(StackTraceParser, FindsTheExceptionByTheFirstPatternThatMatchesAnywhere) {
  struct Case {
    const char* name;
    std::string text;
    std::string type;
    std::string message;
  };
  const std::vector<Case> cases = {
      {"Crashlytics non-fatal without message on its line",
       "Non-fatal Exception: NullReferenceException\nObject reference not set to an instance of an object.",
       "NullReferenceException", ""},
      {"a crashed-thread header doesn't end the search",
       "Crashed: com.apple.main-thread\nEXC_BREAKPOINT 0x0000000102f1c3a0\n0  MyGame 0x1 main + 1",
       "EXC_BREAKPOINT", "0x0000000102f1c3a0"},
      {"Exception Type wins over an earlier signal line", "SIGSEGV first\nException Type: EXC_BAD_ACCESS (SIGSEGV)",
       "EXC_BAD_ACCESS", "(SIGSEGV)"},
      {"signal line beats the abort message", "signal 6 (SIGABRT), code -6\nAbort message: 'boom'", "SIGABRT",
       "code -6"},
      {"indented first cause of a Java chain",
       "java.lang.RuntimeException: outer\n    at a.B.c(B.java:1)\n     Caused by: java.io.IOException: disk full\n"
       "Caused by: java.lang.Error: second",
       "java.io.IOException", "disk full"},
      {"throwable without message", "IndexOutOfRangeException", "IndexOutOfRangeException", ""},
      {"unhandled with colon", "Unhandled Exception: System.InvalidOperationException: Sequence contains no elements",
       "System.InvalidOperationException", "Sequence contains no elements"},
      {"unhandled type only", "Unhandled Exception: SIGSEGV", "SIGSEGV", ""},
      {"fatal error", "Fatal error: Unexpectedly found nil while unwrapping an Optional value", "Fatal error",
       "Unexpectedly found nil while unwrapping an Optional value"},
      {"termination reason only", "Termination Reason: DYLD 1 Library missing", "", "DYLD 1 Library missing"},
      {"a pattern never reaches into the next line", "SIGSEGV\n#00 pc 0001 libgame.so", "SIGSEGV", ""},
  };
  for (const Case& c : cases) {
    CrashReport report = StackTraceParser().parse(c.text);
    EXPECT_EQ(report.exceptionType, c.type) << c.name;
    EXPECT_EQ(report.exceptionMessage, c.message) << c.name;
  }
}

struct ThreadShape {
  std::string name;
  bool crashed;
  std::vector<int> indexes;
};

std::vector<ThreadShape> shape(const CrashReport& report) {
  std::vector<ThreadShape> out;
  for (const ThreadTrace& t : report.threads) {
    ThreadShape s{t.name, t.isCrashed, {}};
    for (const StackFrame& f : t.frames) s.indexes.push_back(f.index);
    out.push_back(s);
  }
  return out;
}

TEST(StackTraceParser, SplitsThreadsAtTheirHeaders) {
  struct Case {
    const char* name;
    std::string text;
    std::vector<ThreadShape> threads;
  };
  const std::string appleFrame = "0   MyGame   0x0000000102f1c3a0 main + 12\n";
  const std::vector<Case> cases = {
      {"text without frames or headers", "The app closed.\n", {}},
      {"Apple threads with queue, name line and crashed mark",
       "Thread 0 name:  Dispatch queue: com.apple.main-thread\nThread 0 Crashed:\n" + appleFrame +
           "1   MyGame   0x0000000102f1c3a0 start + 4\n\nThread 1:\n" + appleFrame +
           "Thread 2:: Dispatch queue: com.apple.network\n" + appleFrame + "Thread 3:\n",
       {{"com.apple.main-thread", true, {0, 1}}, {"Thread 1", false, {0}}, {"com.apple.network", false, {0}},
        {"Thread 3", false, {}}}},
      {"Crashed header without a name", "Crashed:\n" + appleFrame, {{"Crashed", true, {0}}}},
      {"last exception backtrace before the crashed thread",
       "Last Exception Backtrace (0):\n" + appleFrame + "Thread 0 Crashed:\n" + appleFrame,
       {{"Last Exception Backtrace", false, {0}}, {"Thread 0", true, {0}}}},
      {"frames before the first header go to an implicit thread",
       appleFrame + "Thread 1:\n" + appleFrame, {{"Thread 0", true, {0}}, {"Thread 1", false, {0}}}},
      {"implicit thread is not marked when a header marks another",
       appleFrame + "Thread 1 Crashed:\n" + appleFrame, {{"Thread 0", false, {0}}, {"Thread 1", true, {0}}}},
      {"tombstone threads: the first is the crashing one",
       "pid: 10, tid: 11, name: UnityMain  >>> com.game <<<\nbacktrace:\n#00 pc 0001  /data/app/libgame.so\n"
       "--- --- ---\npid: 10, tid: 12, name: Worker  >>> com.game <<<\n#00 pc 0002  /system/lib64/libc.so\n"
       "#01 pc 0003  /system/lib64/libc.so\n",
       {{"UnityMain", true, {0}}, {"Worker", false, {0, 1}}}},
      {"Unity frames numbered by position",
       "NullReferenceException: x\nA.B.C () (at Assets/A.cs:1)\nA.B.D () (at Assets/A.cs:2)\n"
       "UnityEngine.Debug:Log(Object)\n",
       {{"Thread 0", true, {0, 1, 2}}}},
  };
  for (const Case& c : cases) {
    auto got = shape(StackTraceParser().parse(c.text));
    ASSERT_EQ(got.size(), c.threads.size()) << c.name;
    for (size_t i = 0; i < got.size(); ++i) {
      EXPECT_EQ(got[i].name, c.threads[i].name) << c.name;
      EXPECT_EQ(got[i].crashed, c.threads[i].crashed) << c.name;
      EXPECT_EQ(got[i].indexes, c.threads[i].indexes) << c.name;
    }
  }
}

}  // namespace
}  // namespace quillora::crash
