// `quillora analyze --dry-run` as a user runs it: the crash facts in JSON and text, the warning
// for a text without frames, Apple logs told by content, configured in-app prefixes.
#include <gtest/gtest.h>

#include "base/json.h"
#include "support/test_support.h"

namespace quillora::testing {
namespace {

class AnalyzeCrash : public ::testing::Test {
 protected:
  TempDir home;
  TempDir work;
  RunResult quillora(const std::vector<std::string>& args, RunOptions opts = {}) {
    if (!opts.cwd) opts.cwd = work.path();
    return runQuillora(home.path(), args, opts);
  }
  static std::string example(const std::string& name) {
    return (sourceDir() / "examples" / "crashes" / name).string();
  }
  base::Json crashOf(const RunResult& r) {
    auto doc = base::parseJson(r.out);
    EXPECT_TRUE(doc) << r.out;
    return doc ? (*doc)["crash"] : base::Json();
  }
};

TEST_F(AnalyzeCrash, JsonDryRunCarriesTheCrashObject) {
  std::string path = example("unity-nullref.txt");
  auto r = quillora({"analyze", "--trace", path, "--dry-run", "--format", "json"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.err, "No repository: the engine works from the crash alone\n");
  base::Json expected = base::Json::parse(R"j({
    "kind": "trace", "app": null, "issue": null,
    "platform": "Unity (IL2CPP / Mono)",
    "exceptionType": "NullReferenceException",
    "exceptionMessage": "",
    "headline": "NullReferenceException in Game.Player.PlayerController.Update",
    "blameFrame": "Game.Player.PlayerController.Update ()",
    "blameLocation": "Assets/Scripts/Player/PlayerController.cs:74",
    "frames": 1, "inAppFrames": 1,
    "signature": "v1|NullReferenceException|Game.Player.PlayerController.Update"})j");
  expected["file"] = path;
  EXPECT_EQ(crashOf(r), expected);
}

TEST_F(AnalyzeCrash, TextDryRunShowsTheSameFacts) {
  auto r = quillora({"analyze", "--trace", example("unreal.txt"), "--dry-run"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("Platform: Unreal Engine (C++)\n"
                       "Exception: EXCEPTION_ACCESS_VIOLATION\n"
                       "Message: reading address 0x00000000000002a8\n"
                       "Headline: EXCEPTION_ACCESS_VIOLATION in AMyCharacter::HandleWeaponFire\n"
                       "Blamed frame: AMyCharacter::HandleWeaponFire() "
                       "(C:\\Projects\\MyGame\\Source\\MyGame\\Characters\\MyCharacter.cpp:214)\n"
                       "4 of 8 frames in your code\n"
                       "Signature: v1|EXCEPTION_ACCESS_VIOLATION|AMyCharacter::HandleWeaponFire|"
                       "AMyCharacter::execHandleWeaponFire|UWeaponComponent::Fire\n"),
            std::string::npos)
      << r.out;
}

TEST_F(AnalyzeCrash, WarnsWhenNoFrameWasRecognizedAndGoesOn) {
  work.write("words.txt", "The game closed when I opened the shop.\n");
  auto text = quillora({"analyze", "--trace", "words.txt", "--dry-run", "--quiet"});
  EXPECT_EQ(text.exitCode, 0);
  EXPECT_EQ(text.err,
            "quillora: warning: No stack frames were recognized in the crash; the engine works from the text alone.\n");
  EXPECT_NE(text.out.find("Headline: Crash\nBlamed frame: none\n0 of 0 frames in your code\n"), std::string::npos);
  auto json = quillora({"analyze", "--trace", "words.txt", "--dry-run", "--format", "json"});
  auto doc = base::parseJson(json.out);
  ASSERT_TRUE(doc);
  EXPECT_EQ((*doc)["warnings"],
            base::Json::parse(R"(["No stack frames were recognized in the crash; the engine works from the text alone."])"));
  EXPECT_EQ((*doc)["crash"]["blameFrame"], nullptr);
  EXPECT_EQ((*doc)["crash"]["blameLocation"], nullptr);
  EXPECT_EQ((*doc)["crash"]["platform"], "Unknown");
}

TEST_F(AnalyzeCrash, AppleLogsAreToldByContentWhateverTheirName) {
  work.write("crash.txt", readText(example("ios.ips")));
  RunOptions fromStdin;
  fromStdin.stdinText = readText(example("ios.ips"));
  for (auto& r : {quillora({"analyze", "--trace", "crash.txt", "--dry-run", "--format", "json"}),
                  quillora({"analyze", "--trace", "-", "--dry-run", "--format", "json"}, fromStdin)}) {
    ASSERT_EQ(r.exitCode, 0) << r.err;
    base::Json crash = crashOf(r);
    EXPECT_EQ(crash["platform"], "iOS / macOS (Swift, Obj-C)");
    EXPECT_EQ(crash["exceptionType"], "EXC_BREAKPOINT");
    EXPECT_EQ(crash["blameFrame"], "InventoryManager.equip(itemID:)");
    EXPECT_EQ(crash["blameLocation"], "InventoryManager.swift:88");
    EXPECT_EQ(crash["frames"], 13);
  }
}

TEST_F(AnalyzeCrash, ConfiguredInAppPrefixesMoveTheBlame) {
  work.write("config.json", R"({"inAppPrefixes": ["", "androidx.fragment"]})");
  std::string path = (sourceDir() / "tests" / "fixtures" / "crash" / "androidJava" /
                      "crashlytics-console-no-at-frames.txt").string();
  auto plain = quillora({"analyze", "--trace", path, "--dry-run", "--format", "json"});
  EXPECT_EQ(crashOf(plain)["blameFrame"], nullptr);
  auto configured = quillora({"analyze", "--trace", path, "--dry-run", "--format", "json", "--config", "config.json"});
  ASSERT_EQ(configured.exitCode, 0) << configured.err;
  EXPECT_EQ(crashOf(configured)["blameFrame"], "androidx.fragment.app.Fragment.requireContext");
  EXPECT_EQ(crashOf(configured)["inAppFrames"], 2);
}

}  // namespace
}  // namespace quillora::testing
