// The in-app rules of each frame form, the generated-method test and configured prefixes.
#include <gtest/gtest.h>

#include "crash/in_app_rules.h"

namespace quillora::crash {
namespace {

struct Case {
  FrameForm form;
  std::string module;
  std::string symbol;
  std::optional<std::string> file;
  bool inApp;
};

TEST(InAppRules, DecideByTheRuleSetOfEachForm) {
  using F = FrameForm;
  // One case or two per rule, and where a rule is easy to get wrong, its edge.
  const std::vector<Case> cases = {
      // Apple: system images by shape or by name; UnityFramework only for generated game methods.
      {F::appleWithAddress, "MyGame", "InventoryManager.equip(itemID:)", std::nullopt, true},
      {F::appleWithAddress, "libsystem_kernel.dylib", "__pthread_kill", std::nullopt, false},
      {F::appleWithAddress, "libswiftCore", "_assertionFailure", std::nullopt, false},
      {F::appleWithAddress, "dyld", "start", std::nullopt, false},
      {F::appleWithoutAddress, "UIKitCore", "-[UIApplication _run]", std::nullopt, false},
      {F::appleWithAddress, "UnityFramework", "PlayerController_Update_m7F2C1A9B3E", std::nullopt, true},
      {F::appleWithAddress, "UnityFramework", "List_1_get_Item_m0A1B2C3D4E", std::nullopt, false},
      {F::appleWithAddress, "UnityFramework", "il2cpp::vm::Exception::Raise", std::nullopt, false},
      {F::appleWithAddress, "UnityFramework", "PlayerController_Update_m7F2C1", std::nullopt, false},
      {F::appleWithAddress, "UnityFramework", "PlayerController_Update_m7f2c1a9b3e", std::nullopt, false},
      {F::appleWithAddress, "MyGame", "il2cpp::vm::Runtime::Invoke", std::nullopt, false},
      {F::appleWithAddress, "MyGame", "UnityEngine_Object_get_name", std::nullopt, false},
      // Android native: system folders, system libraries by file name, libil2cpp like UnityFramework.
      {F::androidNative, "/data/app/com.game-1/lib/arm64/libgame.so", "Inventory::addItem(Item*)", std::nullopt, true},
      {F::androidNative, "/apex/com.android.runtime/lib64/bionic/libc.so", "abort", std::nullopt, false},
      {F::androidNative, "/data/app/com.game-1/lib/arm64/libunity.so", "x", std::nullopt, false},
      {F::androidNative, "linker64", "x", std::nullopt, false},
      {F::androidNative, "/data/app/com.game-1/lib/arm64/libil2cpp.so", "Shop_Buy_m1A2B3C4D5E", std::nullopt, true},
      {F::androidNative, "/data/app/com.game-1/lib/arm64/libil2cpp.so", "", std::nullopt, false},
      {F::androidNative, "/data/app/com.game-1/base.apk", "", std::nullopt, true},
      // Java / Kotlin (the module is the class): library packages are whole package prefixes.
      {F::java, "com.mygame.Shop", "com.mygame.Shop.open", std::nullopt, true},
      {F::java, "android.os.Handler", "android.os.Handler.dispatchMessage", std::nullopt, false},
      {F::java, "com.google.firebase.Foo", "x", std::nullopt, false},
      {F::java, "com.google.gms.Foo", "x", std::nullopt, true},
      {F::java, "javalike.Thing", "x", std::nullopt, true},
      // Unity managed: library symbols and packages from the package cache, in either slash.
      {F::unityWithLocation, "Game.Player", "Game.Player.Update ()", "Assets/Scripts/Player.cs", true},
      {F::unityWithoutLocation, "System", "System:Invoke ()", std::nullopt, false},
      {F::dotNet, "DG.Tweening", "DG.Tweening.Tween.Play ()", std::nullopt, false},
      {F::unityWithLocation, "Ads", "Ads.Show ()", "Library/PackageCache/com.ads@1.0/Ads.cs", false},
      {F::unityWithLocation, "Ads", "Ads.Show ()", "Library\\PackageCache\\com.ads@1.0\\Ads.cs", false},
      {F::unityWithLocation, "SystemTools", "SystemTools.Run ()", std::nullopt, true},
      // Unreal / Windows: engine modules and engine sources, in either slash.
      {F::windows, "MyGame", "AMyCharacter::HandleWeaponFire()", "C:\\Projects\\MyGame\\Source\\MyGame\\A.cpp", true},
      {F::windows, "UnrealEditor-Engine", "UWorld::Tick()", std::nullopt, false},
      {F::windows, "ntdll", "RtlUserThreadStart", std::nullopt, false},
      {F::windows, "MyGame", "FEngineLoop::Tick()", "D:\\UE_5.4\\Engine\\Source\\Runtime\\Launch\\Launch.cpp", false},
      {F::windows, "MyGame", "FEngineLoop::Tick()", "/Users/Shared/UE/Engine/Source/Runtime/Launch.cpp", false},
  };
  for (const Case& c : cases) {
    StackFrame frame;
    frame.module = c.module;
    frame.symbol = c.symbol;
    frame.file = c.file;
    EXPECT_EQ(isInApp(frame, c.form, {}), c.inApp) << c.module << " " << c.symbol;
  }
}

TEST(InAppRules, ConfiguredPrefixesWinOverEveryRuleSet) {
  StackFrame frame;
  frame.module = "/system/lib64/libc.so";
  frame.symbol = "abort";
  EXPECT_FALSE(isInApp(frame, FrameForm::androidNative, {"", "ab_"}));
  EXPECT_TRUE(isInApp(frame, FrameForm::androidNative, {"", "abo"}));
  EXPECT_TRUE(isInApp(frame, FrameForm::androidNative, {"/system/"}));
  frame.file = "Packages/com.vendor.sdk/Runtime/Sdk.cs";
  EXPECT_TRUE(isInApp(frame, FrameForm::unityWithLocation, {"Packages/com.vendor"}));
}

TEST(InAppRules, GeneratedGameMethodsNeedAHashAndANonEngineType) {
  const std::pair<const char*, bool> cases[] = {
      {"PlayerController_Update_m7F2C1A9B3E", true}, {"Shop_Buy_mABCDEF", true},
      {"Shop_Buy_mABCDE", false},                   {"Shop_Buy", false},
      {"Dictionary_Method_m0123456789", false},     {"TMP_Method_m0123456789", false},
      {"Lists_Method_m0123456789", true},  // engine type names match whole, not as prefixes
  };
  for (const auto& [symbol, generated] : cases) EXPECT_EQ(isGeneratedGameMethod(symbol), generated) << symbol;
}

}  // namespace
}  // namespace quillora::crash
