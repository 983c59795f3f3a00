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
  const std::vector<Case> cases = {
      // Apple
      {F::appleWithAddress, "MyGame", "InventoryManager.equip(itemID:)", std::nullopt, true},
      {F::appleWithAddress, "libsystem_kernel.dylib", "__pthread_kill", std::nullopt, false},
      {F::appleWithAddress, "libswiftCore", "_assertionFailure", std::nullopt, false},
      {F::appleWithAddress, "dyld", "start", std::nullopt, false},
      {F::appleWithAddress, "UIKitCore", "-[UIApplication _run]", std::nullopt, false},
      {F::appleWithAddress, "CoreFoundation", "__exceptionPreprocess", std::nullopt, false},
      {F::appleWithoutAddress, "Foundation", "x", std::nullopt, false},
      {F::appleWithAddress, "UnityFramework", "PlayerController_Update_m7F2C1A9B3E", std::nullopt, true},
      {F::appleWithAddress, "UnityFramework", "List_1_get_Item_m0A1B2C3D4E", std::nullopt, false},
      {F::appleWithAddress, "UnityFramework", "MonoBehaviour_Invoke_mABCDEF12", std::nullopt, false},
      {F::appleWithAddress, "UnityFramework", "TMP_Text_SetText_mABCDEF12", std::nullopt, false},
      {F::appleWithAddress, "UnityFramework", "il2cpp::vm::Exception::Raise", std::nullopt, false},
      {F::appleWithAddress, "UnityFramework", "PlayerController_Update_m7F2C1", std::nullopt, false},
      {F::appleWithAddress, "UnityFramework", "PlayerController_Update_m7f2c1a9b3e", std::nullopt, false},
      {F::appleWithAddress, "MyGame", "il2cpp::vm::Runtime::Invoke", std::nullopt, false},
      {F::appleWithAddress, "MyGame", "UnityEngine_Object_get_name", std::nullopt, false},
      // Android native
      {F::androidNative, "/data/app/com.game-1/lib/arm64/libgame.so", "Inventory::addItem(Item*)", std::nullopt, true},
      {F::androidNative, "/system/lib64/libc.so", "abort", std::nullopt, false},
      {F::androidNative, "/apex/com.android.runtime/lib64/bionic/libc.so", "abort", std::nullopt, false},
      {F::androidNative, "/vendor/lib64/libgpu.so", "x", std::nullopt, false},
      {F::androidNative, "/bionic/x", "x", std::nullopt, false},
      {F::androidNative, "/data/app/com.game-1/lib/arm64/libunity.so", "x", std::nullopt, false},
      {F::androidNative, "/data/app/com.game-1/lib/arm64/libmain.so", "x", std::nullopt, false},
      {F::androidNative, "/data/app/com.game-1/lib/arm64/libc++_shared.so", "x", std::nullopt, false},
      {F::androidNative, "linker64", "x", std::nullopt, false},
      {F::androidNative, "/data/app/com.game-1/lib/arm64/libil2cpp.so", "Shop_Buy_m1A2B3C4D5E", std::nullopt, true},
      {F::androidNative, "/data/app/com.game-1/lib/arm64/libil2cpp.so", "Dictionary_2_TryGetValue_m1A2B3C4D5E",
       std::nullopt, false},
      {F::androidNative, "/data/app/com.game-1/lib/arm64/libil2cpp.so", "", std::nullopt, false},
      {F::androidNative, "/data/app/com.game-1/base.apk", "", std::nullopt, true},
      // Java / Kotlin (the module is the class)
      {F::java, "com.mygame.Shop", "com.mygame.Shop.open", std::nullopt, true},
      {F::java, "android.os.Handler", "android.os.Handler.dispatchMessage", std::nullopt, false},
      {F::java, "androidx.fragment.app.Fragment", "x", std::nullopt, false},
      {F::java, "kotlinx.coroutines.DispatchedTask", "x", std::nullopt, false},
      {F::java, "com.google.firebase.Foo", "x", std::nullopt, false},
      {F::java, "com.google.gms.Foo", "x", std::nullopt, true},
      {F::java, "com.unity3d.player.UnityPlayer", "x", std::nullopt, false},
      {F::java, "jdk.internal.reflect.X", "x", std::nullopt, false},
      {F::java, "javalike.Thing", "x", std::nullopt, true},
      // Unity managed
      {F::unityWithLocation, "Game.Player", "Game.Player.Update ()", "Assets/Scripts/Player.cs", true},
      {F::unityWithLocation, "UnityEngine.Object", "UnityEngine.Object.Destroy ()", std::nullopt, false},
      {F::unityWithoutLocation, "System", "System:Invoke ()", std::nullopt, false},
      {F::dotNet, "System.Linq", "System.Linq.Enumerable.First ()", std::nullopt, false},
      {F::dotNet, "DG.Tweening", "DG.Tweening.Tween.Play ()", std::nullopt, false},
      {F::unityWithLocation, "Ads", "Ads.Show ()", "Library/PackageCache/com.ads@1.0/Ads.cs", false},
      {F::unityWithLocation, "Ads", "Ads.Show ()", "/Users/me/Game/Packages/PackageCache/Ads.cs", false},
      {F::unityWithLocation, "Ads", "Ads.Show ()", "Library\\PackageCache\\com.ads@1.0\\Ads.cs", false},
      {F::unityWithLocation, "SystemTools", "SystemTools.Run ()", std::nullopt, true},
      // Unreal / Windows
      {F::windows, "MyGame", "AMyCharacter::HandleWeaponFire()", "C:\\Projects\\MyGame\\Source\\MyGame\\A.cpp", true},
      {F::windows, "UnrealEditor-Engine", "UWorld::Tick()", std::nullopt, false},
      {F::windows, "UE4Editor-Core", "x", std::nullopt, false},
      {F::windows, "ntdll", "RtlUserThreadStart", std::nullopt, false},
      {F::windows, "KERNELBASE", "RaiseException", std::nullopt, false},
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
  EXPECT_TRUE(isGeneratedGameMethod("PlayerController_Update_m7F2C1A9B3E"));
  EXPECT_TRUE(isGeneratedGameMethod("Shop_Buy_mABCDEF"));
  EXPECT_FALSE(isGeneratedGameMethod("Shop_Buy_mABCDE"));
  EXPECT_FALSE(isGeneratedGameMethod("Shop_Buy"));
  for (const char* type : {"List", "Dictionary", "HashSet", "Queue", "Stack", "Array", "String", "Object",
                           "Enumerable", "Int32", "Int64", "Single", "Double", "Exception", "ThrowHelper",
                           "Component", "GameObject", "MonoBehaviour", "Transform", "Debug", "Mathf", "Action",
                           "Func", "UnityEvent", "Task", "AsyncMethodBuilderCore", "Enumerator", "Resources",
                           "SceneManager", "ScriptableObject", "Behaviour", "Coroutine", "SetupCoroutine",
                           "Delegate", "MulticastDelegate", "Buffer", "Encoding", "Convert", "TextMeshProUGUI",
                           "TMP"}) {
    EXPECT_FALSE(isGeneratedGameMethod(std::string(type) + "_Method_m0123456789")) << type;
  }
  EXPECT_TRUE(isGeneratedGameMethod("Lists_Method_m0123456789"));
}

}  // namespace
}  // namespace quillora::crash
