// Platform detection: the weighted scores and the decision order.
#include <gtest/gtest.h>

#include "crash/platform_detection.h"

namespace quillora::crash {
namespace {

TEST(PlatformDetection, DecidesByWeightedScoresInItsOrder) {
  struct Case {
    const char* name;
    std::string text;
    CrashPlatform expected;
  };
  const std::vector<Case> cases = {
      {"empty text", "", CrashPlatform::unknown},
      {"prose only", "The game closed itself when I opened the shop.", CrashPlatform::unknown},
      {"a Unity game's iOS crash stays unity",
       "Crashed: com.apple.main-thread\nEXC_BAD_ACCESS KERN_INVALID_ADDRESS 0x18\n"
       "0  UnityFramework  0x0000000104a1c3a0 PlayerController_Update_m7F2C1A9B3E + 44\n"
       "1  UIKitCore  0x00000001a2b3c4d5 -[UIApplication _run] + 1000\n"
       "2  libsystem_kernel.dylib  0x00000001a2b3c4d5 __pthread_kill + 8\n",
       CrashPlatform::unity},
      {"one Unreal hint alone: 3 is not above 3, but it is the highest", "UObject was null",
       CrashPlatform::unreal},
      {"one Unreal hint loses to a higher Java score",
       "UObject\njava.lang.IllegalStateException\nCaused by: java.lang.NullPointerException\n",
       CrashPlatform::androidJava},
      {"two Unreal hints win outright over Java", "UObject UE4\njava.lang.X java.lang.Y java.lang.Z",
       CrashPlatform::unreal},
      {"unity wins a tie with unreal", "UnityEngine.Object UObject", CrashPlatform::unity},
      {"unreal above unity wins", "UnityEngine.Object UObject UE5", CrashPlatform::unreal},
      {"Java against native tie goes to Java (table order)", "java.lang.Foo\ntombstone\n",
       CrashPlatform::androidJava},
      {"Java frames", "\tat com.game.Shop.open(Shop.java:42)\n\tat com.game.Main.run(Main.kt:7)\n",
       CrashPlatform::androidJava},
      {"tombstone", "backtrace:\n    #00 pc 0000000000012345  /data/app/x/lib/arm64/libgame.so\n",
       CrashPlatform::androidNative},
      {"Apple frames",
       "Thread 0 Crashed:\n0   MyGame   0x0000000102f1c3a0 InventoryManager.equip(itemID:) + 412 "
       "(InventoryManager.swift:88)\n",
       CrashPlatform::iOSNative},
      {"a tie between unreal 3 and iOS 3 goes to unreal (table order)",
       "UObject\nEXC_BAD_ACCESS\nUIKitCore\ncom.apple.main-thread\n", CrashPlatform::unreal},
  };
  for (const Case& c : cases) EXPECT_EQ(detectPlatform(c.text), c.expected) << c.name;
}

TEST(PlatformDetection, CountsNonOverlappingMatchesTimesWeight) {
  PlatformScores scores = scorePlatforms(
      "UnityEngine.Debug UnityEngine.Object\n"
      "at com.a.B.c(B.java:1)\n"
      "#00 pc 0001 libgame.so\n"
      "EXC_BAD_ACCESS\n");
  EXPECT_EQ(scores.unity, 6u);
  EXPECT_EQ(scores.unreal, 0u);
  EXPECT_EQ(scores.androidJava, 2u);
  EXPECT_EQ(scores.androidNative, 4u);  // "#00 pc " and ".so"
  EXPECT_EQ(scores.iOSNative, 1u);
}

}  // namespace
}  // namespace quillora::crash
