// The version 1 crash signature: stable across builds, devices and addresses, different for
// different code.
#include <gtest/gtest.h>

#include "crash/crash_signature.h"
#include "crash/stack_trace_parser.h"

namespace quillora::crash {
namespace {

TEST(CrashSignature, FramePartsDropWhatChangesBetweenBuilds) {
  struct Case {
    std::string module;
    std::string symbol;
    std::string part;
  };
  const std::vector<Case> cases = {
      {"Game", "Game.Player.PlayerController.Update ()", "Game.Player.PlayerController.Update"},
      {"Game", "Game.Shop.Buy (System.Int32 id)", "Game.Shop.Buy"},
      {"UnityFramework", "PlayerController_Update_m7F2C1A9B3E", "PlayerController_Update"},
      {"UnityFramework", "List_1_get_Item_m0A1B2C3D4E_gshared", "List_1_get_Item"},
      {"Game", "System.Collections.Generic.List`1[T].get_Item (System.Int32 index)",
       "System.Collections.Generic.List.get_Item"},
      {"Game", "UnityEngine.Component.TryGetComponent[T] (T& component)", "UnityEngine.Component.TryGetComponent"},
      {"Game", "Game.Shop+<>c__DisplayClass12_0.<Open>b__3 ()", "Game.Shop+closure.Open.lambda"},
      {"Game", "Game.Loader+<LoadRoutine>d__7.MoveNext ()", "Game.Loader+LoadRoutine.iterator.MoveNext"},
      {"com.game", "com.game.Shop.lambda$open$3", "com.game.Shop.lambda$open"},
      {"com.game", "com.game.-$$Lambda$Shop$YXeDMfhk7eFjJbx7Kf-j2_CQ3io.run", "com.game.-$Lambda.run"},
      {"com.game", "com.game.Shop$$ExternalSyntheticLambda0.run", "com.game.Shop$Lambda.run"},
      {"com.game", "com.game.Shop$2.onClick", "com.game.Shop$anon.onClick"},
      {"com.game", "com.game.Shop.<init>", "com.game.Shop.<init>"},
      {"libgame.so", "Inventory::addItem(Item*)", "Inventory::addItem"},
      {"libgame.so", "std::vector<Item, std::allocator<Item> >::push_back(Item const&)", "std::vector::push_back"},
      {"libgame.so", "(anonymous namespace)::tick(float)", "anonymous::tick"},
      {"libgame.so", "std::sys::pal::unix::abort_internal::h559a611b9a077d07", "std::sys::pal::unix::abort_internal"},
      {"MyGame", "`SpoutSender::SendCurrentFrame'::`2'::<lambda_1>::operator()()",
       "`SpoutSender::SendCurrentFrame'::lambda::operator"},
      {"MyGame", "AMyCharacter::HandleWeaponFire()", "AMyCharacter::HandleWeaponFire"},
      {"MyGame", "closure #2 in InventoryManager.equip(itemID:)", "closure in InventoryManager.equip"},
      {"MyGame", "-[RewardStore grantReward:toPlayer:]", "-[RewardStore grantReward:toPlayer:]"},
      {"MyGame", "0x102230000", "MyGame"},
      {"/data/app/~~abc==/com.game-xyz==/lib/arm64/libgame.so", "", "libgame.so"},
  };
  for (const Case& c : cases) {
    StackFrame frame;
    frame.module = c.module;
    frame.symbol = c.symbol;
    EXPECT_EQ(signatureFramePart(frame), c.part) << c.symbol;
  }
}

TEST(CrashSignature, StaysTheSameAcrossBuildsAndAddressesAndFallsBackToSystemFramesThenWords) {
  const std::string unity = "Crashed: com.apple.main-thread\nEXC_BAD_ACCESS KERN_INVALID_ADDRESS ";
  const std::string unitySignature =
      "v1|EXC_BAD_ACCESS|InventorySlot_Refresh|InventoryPanel_OnItemAdded|Inventory_AddItem";
  const std::string javaSignature =
      "v1|java.lang.NullPointerException|com.game.Shop.open|com.game.Shop$anon.run";
  const std::pair<std::string, std::string> cases[] = {
      // Two builds on two devices: other hashes, addresses and offsets, and a fourth frame.
      {unity + "0x0000000000000018\n"
               "0  UnityFramework  0x0000000109a4c3b0 InventorySlot_Refresh_m7F2C1A9B3E + 48\n"
               "1  UnityFramework  0x0000000109a4b2f4 InventoryPanel_OnItemAdded_mC41D8E2A7F + 212\n"
               "2  UnityFramework  0x0000000109a4a1d0 Inventory_AddItem_m9B0E44F1C2 + 380\n"
               "3  UnityFramework  0x0000000109a4a1d0 Game_Tick_m9B0E44F1C2 + 380\n",
       unitySignature},
      {unity + "0x0000000000000020\n"
               "0  UnityFramework  0x00000001052c13a0 InventorySlot_Refresh_mA1B2C3D4E5 + 52\n"
               "1  UnityFramework  0x00000001052c02e4 InventoryPanel_OnItemAdded_m0F1E2D3C4B + 208\n"
               "2  UnityFramework  0x00000001052b01c0 Inventory_AddItem_m5A6B7C8D9E + 376\n"
               "3  UnityFramework  0x00000001052b01c0 Other_Tick_m5A6B7C8D9E + 376\n",
       unitySignature},
      {"java.lang.NullPointerException: x\n\tat com.game.Shop.open(Shop.kt:12)\n"
       "\tat com.game.Shop$1.run(Shop.kt:40)\n\tat android.os.Handler.handleCallback(Handler.java:938)\n",
       javaSignature},
      {"java.lang.NullPointerException: y\n\tat com.game.Shop.open(Shop.kt:14)\n"
       "\tat com.game.Shop$3.run(Shop.kt:44)\n\tat android.os.Handler.handleCallback(Handler.java:958)\n",
       javaSignature},
      // Another exception or other app code is another crash.
      {"NullReferenceException: x\nGame.Shop.Open () (at Assets/Shop.cs:3)\n", "v1|NullReferenceException|Game.Shop.Open"},
      {"ArgumentException: x\nGame.Shop.Open () (at Assets/Shop.cs:3)\n", "v1|ArgumentException|Game.Shop.Open"},
      {"NullReferenceException: x\nGame.Shop.Close () (at Assets/Shop.cs:3)\n", "v1|NullReferenceException|Game.Shop.Close"},
      {"signal 11 (SIGSEGV)\n#00 pc 0001  /system/lib64/libc.so (abort+12)\n#01 pc 0002  /system/lib64/libc.so\n",
       "v1|SIGSEGV|abort|libc.so"},
      {"Abort message: 'Check failed: slot 12 at 0x7f001234 (id {a-b})'", "v1|SIGABRT|'Check failed: slot # at # (id #)'"},
      {"\n  The game froze on level 3.\nThen it closed.", "v1|Crash|The game froze on level #."},
      {"", "v1|Crash"},
  };
  StackTraceParser parser;
  for (const auto& [trace, signature] : cases) EXPECT_EQ(crashSignature(parser.parse(trace)), signature) << trace;
}

}  // namespace
}  // namespace quillora::crash
