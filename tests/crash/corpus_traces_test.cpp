// Real traces from public sources (tests/fixtures/crash/SOURCES.tsv names each one): platform,
// exception, crashed thread, blamed frame and frame counts, read through the same entry point as
// `quillora analyze --trace`. Where a real trace shows a rule falling short, the rule is followed
// and the case says so.
#include <gtest/gtest.h>

#include "crash/apple_crash_log_reader.h"
#include "support/test_support.h"

namespace quillora::crash {
namespace {

struct CorpusCase {
  std::string path;
  CrashPlatform platform;
  std::string exceptionType;
  std::string exceptionMessage;
  std::string crashedThread;
  size_t crashedThreadFrames;
  size_t threads;
  size_t frames;
  size_t inAppFrames;
  std::string blamedSymbol;
  std::string blamedLocation;
};

TEST(CorpusTraces, ReadAsTheRulesSay) {
  using P = CrashPlatform;
  const std::vector<CorpusCase> cases = {
      // The console puts the message on its own line; the "Fatal Exception:" rule reads a message only
      // after ": ", so it stays empty. Frames of this form are read as Java (all are androidx here).
      {"crash/androidJava/crashlytics-console-no-at-frames.txt", P::androidJava, "java.lang.IllegalStateException", "",
       "Thread 0", 3, 1, 3, 0, "", ""},
      {"crash/androidJava/crashlytics-desugared-lambda-frame.txt", P::androidJava, "java.lang.IllegalStateException", "Fragment TaskSelectFragment{7b3b326 (1a710908-6986-4af4-b339-54fadbcbf892)} not attached to a context.",
       "Thread 0", 13, 1, 13, 3, "com.xxx.fragment.main.TaskSelectFragment.setVisibleList", "TaskSelectFragment.java:198"},
      {"crash/androidJava/crashlytics-r8-partially-obfuscated.txt", P::androidJava, "java.lang.IllegalStateException", "Fragment AuthenticationFragment{10cbbf6 (1613be42-6231-424b-bec8-47efb90db0c5)} not attached to a context.",
       "Thread 0", 11, 1, 11, 2, "io.homeassistant.companion.android.onboarding.authentication.AuthenticationFragment$onCreateView$$inlined$apply$lambda$1.onReceivedError", "AuthenticationFragment.kt:67"},
      {"crash/androidJava/kotlin-coroutine-no-indent-frames.txt", P::androidJava, "kotlin.UninitializedPropertyAccessException", "lateinit property lblLastSyncDate has not been initialized",
       "Thread 0", 13, 1, 13, 3, "org.ole.planet.myplanet.ui.sync.SyncActivity.getLblLastSyncDate", "SyncActivity.kt:73"},
      {"crash/androidJava/kotlin-lateinit-retrofit-callback.txt", P::androidJava, "kotlin.UninitializedPropertyAccessException", "lateinit property btnSignIn has not been initialized",
       "Thread 0", 12, 1, 12, 3, "org.ole.planet.myplanet.ui.sync.SyncActivity.getBtnSignIn", "SyncActivity.kt:129"},
      // The top exception line is indented inside a logcat block; the first "Caused by:" decides, as
      // the table orders it before the generic throwable line.
      {"crash/androidJava/r8-navargs-nosuchmethod-logcat.txt", P::androidJava, "java.lang.reflect.InvocationTargetException", "",
       "Thread 0", 24, 1, 24, 1, "com.example.retracer8sample.ui.main.SecondFragment.onViewCreated", "SecondFragment.kt:3"},
      {"crash/androidNative/cli-ffmpeg-x264-neon-segv-accerr.txt", P::androidNative, "SIGSEGV", "code 2 (SEGV_ACCERR), fault addr 0xb400007a2a46b000",
       "ffmpeg", 16, 3, 30, 19, "x264_8_mbtree_propagate_cost_neon", ""},
      // Every frame line carries a logcat prefix ("F/DEBUG ( 123): #00 pc"), which the tombstone pattern
      // doesn't allow: no frames.
      {"crash/androidNative/tombstone-mediaserver-arm-logcat.txt", P::androidNative, "SIGABRT", "code -6 in tid 30679 (generic)",
       "generic", 0, 1, 0, 0, "", ""},
      {"crash/hard/anr-activitymanager-header-cpu-only.txt", P::unknown, "", "",
       "", 0, 0, 0, 0, "", ""},
      {"crash/hard/crashlytics-ios-header-no-frames.txt", P::iOSNative, "EXC_BAD_ACCESS", "KERN_INVALID_ADDRESS 0x000000010004d870",
       "com.apple.main-thread", 0, 1, 0, 0, "", ""},
      {"crash/hard/ios-header-only.crash", P::unknown, "", "",
       "", 0, 0, 0, 0, "", ""},
      // Modules named with spaces ("App Namespace") don't fit the Apple pattern's single-word module.
      {"crash/hard/ios-partial-spaces-in-module.crash", P::iOSNative, "", "",
       "Thread 0", 13, 1, 13, 0, "", ""},
      // Unsymbolicated app frames keep only the load address once the " + offset" tail is removed.
      {"crash/hard/ios16-text-with-json-header.crash", P::iOSNative, "EXC_BREAKPOINT", "(SIGTRAP)",
       "com.apple.main-thread", 48, 8, 129, 3, "0x102230000", ""},
      {"crash/hard/kscrash-stackoverflow-recursion.crash", P::iOSNative, "EXC_BAD_ACCESS", "(SIGSEGV)",
       "apple.main-thread", 50, 7, 70, 40, "-[Crasher causeStackOverflow]", ""},
      // The native signal line comes first in the table; the later system Java exception has no app frames.
      {"crash/hard/logcat-heap-corruption-plus-system-java-exc.txt", P::androidJava, "SIGABRT", "code -6 in tid 18945 (Thread-3956)",
       "Thread 0", 6, 1, 6, 0, "", ""},
      {"crash/hard/native-signal-line-only.txt", P::unknown, "SIGSEGV", "code 1 (SEGV_MAPERR), fault addr 0x0 in tid 4247 (HeapTaskDaemon), pid 4160",
       "", 0, 0, 0, 0, "", ""},
      {"crash/hard/tombstone-abort-message-no-frames.txt", P::unknown, "SIGABRT", "code -6 in tid 24061 (oid.apps.chrome)",
       "oid.apps.chrome", 0, 1, 0, 0, "", ""},
      {"crash/hard/tombstone-hard-wrapped-lines.txt", P::androidNative, "SIGABRT", "code -6 in tid 10856 (CrRendererMain)",
       "CrRendererMain", 0, 1, 0, 0, "", ""},
      // Pasted as one line: the Unity pattern takes the whole line as one frame.
      {"crash/hard/unity-nre-one-line-no-type.txt", P::unity, "", "",
       "Thread 0", 1, 1, 1, 1, "Object reference not set to an instance of an object MissingReferencesFinder.FindMissingReferences (System.String context, UnityEngine.GameObject[] gameObjects)", "Assets/MissingReferencesFinder/Editor/MissingReferencesFinder.cs:67) MissingReferencesFinder.FindMissingReferencesInCurrentScene () (at Assets/MissingReferencesFinder/Editor/MissingReferencesFinder.cs:22"},
      {"crash/iOSNative/crashlytics-swift-mangled-4-frames.txt", P::iOSNative, "", "",
       "com.apple.main-thread", 4, 1, 4, 4, "$s7TrackerAAC15processSetParam33_D4E886A82F48D5FF6D01201C89A6EB9ELL_5value7optionsySS_SSycAA0D6OptionCtFTf4xnnn_n", ""},
      {"crash/iOSNative/ios16-swift-trap.ips", P::iOSNative, "EXC_BREAKPOINT", "(SIGTRAP)",
       "com.apple.main-thread", 48, 8, 129, 3, "0x102230000", ""},
      {"crash/iOSNative/ios26-testflight-swift-concurrency-assert.crash", P::iOSNative, "EXC_BREAKPOINT", "(SIGTRAP)",
       "Thread 7", 16, 9, 118, 29, "_checkExpectedExecutor(_filenameStart:_filenameLength:_filenameIsASCII:_line:_executor:)", "/<compiler-generated>"},
      {"crash/iOSNative/kscrash-badpointer.crash", P::iOSNative, "EXC_BAD_ACCESS", "(SIGSEGV)",
       "apple.main-thread", 16, 8, 37, 6, "-[Crasher dereferenceBadPointer]", ""},
      {"crash/iOSNative/kscrash-nsexception.crash", P::iOSNative, "NSInvalidArgumentException", "-[__NSArrayI objectForKey:]: unrecognized selector sent to instance 0x1e59bc50",
       "apple.main-thread", 23, 8, 48, 9, "-[Crasher throwException]", ""},
      {"crash/iOSNative/macos12-single-target-segv.ips", P::iOSNative, "EXC_BAD_ACCESS", "(SIGSEGV)",
       "com.apple.main-thread", 3, 1, 3, 2, "0x10e30e000", ""},
      // The type follows a "[Error  : Unity Log]" prefix, which no exception pattern allows.
      {"crash/unity/bepinex-nre-hash-lines.txt", P::unity, "", "",
       "Thread 0", 4, 1, 4, 1, "SIT.Core.Coop.CoopGameComponent.LateUpdate ()", "<cd6b89ac9f8c479f8aab4dbe2f76bd5a>"},
      {"crash/unity/il2cpp-quest-beatsaber-mod-hook.txt", P::unity, "SIGSEGV", "code 1 (SEGV_MAPERR), fault addr 0x18",
       "UnityMain", 22, 1, 22, 2, "Hook_AudioSource_Play::hook_AudioSource_Play(UnityEngine::AudioSource*)", ""},
      {"crash/unity/indexoutofrange-editor-menu.txt", P::unity, "IndexOutOfRangeException", "Index was outside the bounds of the array.",
       "Thread 0", 1, 1, 1, 1, "GSDRoadSystemEditorMenu.UpdateAllRoads ()", "Assets/RoadArchitect/Editor/GSDRoadSystemEditorMenu.cs:61"},
      // Every line carries a logcat prefix: no pattern scores, nothing is read.
      {"crash/unity/mono-android-logcat-dots-deserialize.txt", P::unknown, "", "",
       "", 0, 0, 0, 0, "", ""},
      {"crash/unity/nre-packagecache-assetbundle.txt", P::unity, "NullReferenceException", "Object reference not set to an instance of an object",
       "Thread 0", 1, 1, 1, 0, "", ""},
      {"crash/unity/nre-shopmanager-start.txt", P::unity, "NullReferenceException", "Object reference not set to an instance of an object",
       "Thread 0", 1, 1, 1, 1, "ShopManager.Start ()", "Assets/Game_Assets/Scripts/Game/ShopManager.cs:23"},
      {"crash/unreal/editor-plugin-two-frames-steam.txt", P::unreal, "", "",
       "Thread 0", 2, 1, 2, 1, "USteamUser::execGetSteamID()", "G:\\UnrealEngine\\Engine\\Plugins\\SteamBridge-develop\\Intermediate\\Build\\Win64\\UE4Editor\\Inc\\SteamBridge\\SteamUser.gen.cpp:595"},
      {"crash/unreal/ue52-assert-loginid-lambda-hash.txt", P::unreal, "Assertion failed", "IsValid() [File:E:\\UnrealEngine\\UE_5.2\\Engine\\Source\\Runtime\\Core\\Public\\Templates\\SharedPointer.h] [Line: 1109]",
       "Thread 0", 2, 1, 2, 2, "UStableDiffusionSubsystem::CaptureFromViewportSource()", "F:\\UnrealProjects\\StableDiffusion52\\Plugins\\StableDiffusionTools\\Source\\StableDiffusionTools\\Private\\StableDiffusionSubsystem.cpp:680"},
      {"crash/unreal/ue54-assert-lambda-spout.txt", P::unreal, "Assertion failed", "IsValid() [File:D:\\UE_5.4\\Engine\\Source\\Runtime\\Core\\Public\\Templates\\SharedPointer.h] [Line: 1113]",
       "Thread 0", 1, 1, 1, 1, "`SpoutSender::SendCurrentFrame'::`2'::<lambda_1>::operator()()", "D:\\UE_5_4_projects\\FluidNinjaVFXTools\\Plugins\\UE5-Spout2-master\\Source\\Spout2\\Private\\SpoutContext.cpp:264"},
  };
  StackTraceParser parser;
  for (const CorpusCase& c : cases) {
    CrashReport report = readCrashText(testing::readText(testing::fixture(c.path)), parser);
    EXPECT_EQ(report.platform, c.platform) << c.path;
    EXPECT_EQ(report.exceptionType, c.exceptionType) << c.path;
    EXPECT_EQ(report.exceptionMessage, c.exceptionMessage) << c.path;
    const ThreadTrace* crashed = report.crashedThread();
    EXPECT_EQ(crashed ? crashed->name : "", c.crashedThread) << c.path;
    EXPECT_EQ(crashed ? crashed->frames.size() : 0, c.crashedThreadFrames) << c.path;
    EXPECT_EQ(report.threads.size(), c.threads) << c.path;
    EXPECT_EQ(report.frameCount(), c.frames) << c.path;
    EXPECT_EQ(report.inAppFrameCount(), c.inAppFrames) << c.path;
    const StackFrame* blamed = report.blamedFrame();
    EXPECT_EQ(blamed ? blamed->symbol : "", c.blamedSymbol) << c.path;
    EXPECT_EQ(blamed ? blamed->location().value_or("") : "", c.blamedLocation) << c.path;
  }
}

}  // namespace
}  // namespace quillora::crash
