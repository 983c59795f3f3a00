// The Apple crash-log reader: telling logs by content, .ips and .crash giving the same report,
// uncaught exceptions, symbols in parentheses and system images.
#include <gtest/gtest.h>

#include "base/json.h"
#include "crash/apple_crash_log_reader.h"
#include "support/test_support.h"

namespace quillora::crash {
namespace {

std::string fixtureText(const std::string& path) { return testing::readText(testing::fixture(path)); }

TEST(AppleCrashLogReader, TellsLogsByContentNotByName) {
  struct Case {
    const char* name;
    std::string text;
    AppleCrashLogKind kind;
  };
  const std::vector<Case> cases = {
      {"ips", fixtureText("crash/iOSNative/ios16-swift-trap.ips"), AppleCrashLogKind::ips},
      {"classic text", fixtureText("crash/iOSNative/ios16-text-trap.crash"), AppleCrashLogKind::text},
      {"text led by the ips header line", fixtureText("crash/hard/ios16-text-with-json-header.crash"),
       AppleCrashLogKind::text},
      {"Crashlytics iOS text", fixtureText("crash/iOSNative/crashlytics-swift-mangled-4-frames.txt"),
       AppleCrashLogKind::none},
      {"JSON that is no crash log", "{\"name\":\"x\"}\n{\"threads\":[]}", AppleCrashLogKind::none},
      {"ips header with a broken line", "{\"bug_type\":\"309\"\n{}", AppleCrashLogKind::none},
      {"empty", "", AppleCrashLogKind::none},
  };
  for (const Case& c : cases) EXPECT_EQ(appleCrashLogKind(c.text), c.kind) << c.name;
}

TEST(AppleCrashLogReader, IpsAndTextOfOneCrashGiveTheSameReport) {
  // Everything but the text itself and each frame's line of it.
  auto facts = [](const std::string& path) {
    CrashReport report = readCrashText(fixtureText(path), StackTraceParser());
    report.rawText.clear();
    for (ThreadTrace& thread : report.threads)
      for (StackFrame& frame : thread.frames) frame.raw.clear();
    return base::Json(report);
  };
  base::Json ips = facts("crash/iOSNative/ios16-swift-trap.ips");
  EXPECT_EQ(ips, facts("crash/iOSNative/ios16-text-trap.crash"));
  EXPECT_EQ(ips["threads"].size(), 8u);
}

TEST(AppleCrashLogReader, RendersIpsAsTextWithExceptionBacktraceAndSpecificInformation) {
  std::string header = R"j({"app_name":"Game","bug_type":"309","os_version":"iPhone OS 18.1 (22B83)","bundleID":"com.game"})j";
  std::string body = R"j({
    "procName": "Game", "pid": 7,
    "exception": {"type": "EXC_CRASH", "signal": "SIGABRT"},
    "asi": {"CoreFoundation": ["*** Terminating app due to uncaught exception 'NSRangeException', reason: 'index 5 beyond bounds [0 .. 4]'"]},
    "faultingThread": 1,
    "lastExceptionBacktrace": [
      {"imageIndex": 1, "imageOffset": 100, "symbol": "__exceptionPreprocess", "symbolLocation": 164},
      {"imageIndex": 0, "imageOffset": 4096, "symbol": "Board.cell(at:)", "symbolLocation": 12, "sourceFile": "Board.swift", "sourceLine": 31}
    ],
    "threads": [
      {"name": "worker", "frames": [{"imageIndex": 0, "imageOffset": 16}]},
      {"queue": "com.apple.main-thread", "frames": [
        {"imageIndex": 2, "imageOffset": 8, "symbol": "__pthread_kill", "symbolLocation": 8},
        {"imageIndex": 3, "imageOffset": 8, "symbol": "GameHelper.run()", "symbolLocation": 4},
        {"imageIndex": 9, "imageOffset": 8}
      ]},
      "not a thread"
    ],
    "usedImages": [
      {"name": "Game", "base": 4294967296, "size": 65536, "path": "/private/var/containers/Bundle/Application/X/Game.app/Game"},
      {"name": "CoreFoundation", "base": 6442450944, "size": 4096, "path": "/System/Library/Frameworks/CoreFoundation.framework/CoreFoundation"},
      {"name": "libsystem_kernel.dylib", "base": 8589934592, "path": "/usr/lib/system/libsystem_kernel.dylib"},
      {"name": "GameHelper", "base": 12884901888, "path": "/System/Library/PrivateFrameworks/GameHelper.framework/GameHelper"}
    ]})j";
  CrashReport report = readCrashText(header + "\n" + body, StackTraceParser());
  EXPECT_EQ(report.platform, CrashPlatform::iOSNative);
  EXPECT_EQ(report.exceptionType, "NSRangeException");
  EXPECT_EQ(report.exceptionMessage, "index 5 beyond bounds [0 .. 4]");
  ASSERT_EQ(report.threads.size(), 3u);
  EXPECT_EQ(report.threads[0].name, "Last Exception Backtrace");
  EXPECT_EQ(report.threads[1].name, "worker");
  EXPECT_FALSE(report.threads[1].isCrashed);
  EXPECT_EQ(report.threads[2].name, "com.apple.main-thread");
  EXPECT_TRUE(report.threads[2].isCrashed);
  // A private framework that no list knows is still a system image by its path.
  ASSERT_EQ(report.threads[2].frames.size(), 3u);
  EXPECT_EQ(report.threads[2].frames[1].symbol, "GameHelper.run()");
  EXPECT_FALSE(report.threads[2].frames[1].isInApp);
  EXPECT_EQ(report.threads[2].frames[2].module, "???");
  const StackFrame& appFrame = report.threads[0].frames[1];
  EXPECT_EQ(appFrame.symbol, "Board.cell(at:)");
  EXPECT_EQ(appFrame.location(), "Board.swift:31");
  EXPECT_TRUE(appFrame.isInApp);
  EXPECT_NE(report.rawText.find("Exception Type:     EXC_CRASH (SIGABRT)\n"), std::string::npos);
  EXPECT_NE(report.rawText.find("Thread 1 Crashed::  Dispatch queue: com.apple.main-thread\n"), std::string::npos);
  EXPECT_NE(report.rawText.find("0   Game                           0x0000000100000010 0x100000000 + 16\n"),
            std::string::npos);
  // An image the log doesn't list is "???": no rule makes it a system frame.
  ASSERT_NE(report.blamedFrame(), nullptr);
  EXPECT_EQ(report.blamedFrame()->module, "???");

  CrashReport prefixed = readCrashText(header + "\n" + body, StackTraceParser({"GameHelper"}));
  EXPECT_TRUE(prefixed.threads[2].frames[1].isInApp);
}

TEST(AppleCrashLogReader, TakesTheSymbolOutOfKSCrashParentheses) {
  CrashReport report = readCrashText(fixtureText("crash/iOSNative/kscrash-nsexception.crash"), StackTraceParser());
  ASSERT_NE(report.crashedThread(), nullptr);
  EXPECT_EQ(report.crashedThread()->frames[2].symbol, "-[NSObject(NSObject) doesNotRecognizeSelector:]");
}

TEST(AppleCrashLogReader, ABrokenIpsBodyIsReadAsText) {
  std::string text = "{\"bug_type\":\"309\"}\n{ \"threads\": [ broken\nThread 0 Crashed:\n"
                     "0   Game   0x0000000100000010 main + 4\n";
  EXPECT_EQ(appleCrashLogKind(text), AppleCrashLogKind::ips);
  CrashReport report = readAppleCrashLog(text, StackTraceParser());
  EXPECT_EQ(report.rawText, text);
  ASSERT_EQ(report.frameCount(), 1u);
  EXPECT_EQ(report.blamedFrame()->symbol, "main");
}

}  // namespace
}  // namespace quillora::crash
