#include "crash/in_app_rules.h"

#include <algorithm>
#include <array>

#include "crash/parser_pattern.h"

namespace quillora::crash {

namespace {

bool startsWith(std::string_view s, std::string_view prefix) { return s.substr(0, prefix.size()) == prefix; }
bool endsWith(std::string_view s, std::string_view suffix) {
  return s.size() >= suffix.size() && s.substr(s.size() - suffix.size()) == suffix;
}

template <size_t N>
bool startsWithAny(std::string_view s, const std::array<std::string_view, N>& prefixes) {
  return std::any_of(prefixes.begin(), prefixes.end(), [&](std::string_view p) { return startsWith(s, p); });
}

template <size_t N>
bool isOneOf(std::string_view s, const std::array<std::string_view, N>& names) {
  return std::find(names.begin(), names.end(), s) != names.end();
}

// Engine and library types whose generated methods are not the game's. "Object" appears twice
// in the list this came from; keeping it twice costs nothing and keeps the count at 41.
constexpr std::array<std::string_view, 41> kEngineTypeNames = {
    "List",        "Dictionary",    "HashSet",         "Queue",          "Stack",
    "Array",       "String",        "Object",          "Enumerable",     "Int32",
    "Int64",       "Single",        "Double",          "Exception",      "ThrowHelper",
    "Component",   "GameObject",    "MonoBehaviour",   "Transform",      "Debug",
    "Mathf",       "Action",        "Func",            "UnityEvent",     "Task",
    "AsyncMethodBuilderCore",       "Enumerator",      "Resources",      "SceneManager",
    "Object",      "ScriptableObject", "Behaviour",    "Coroutine",      "SetupCoroutine",
    "Delegate",    "MulticastDelegate", "Buffer",      "Encoding",       "Convert",
    "TextMeshProUGUI", "TMP"};

// Apple's own frameworks and daemons that show up in app crash logs. Libraries (".dylib",
// "libswift…") and "dyld" are caught by shape; this list is for framework binaries.
constexpr std::array<std::string_view, 96> kAppleSystemModules = {
    "AccessibilityUtilities", "Accelerate", "AGXMetal13_3", "AppKit", "AppleMetalOpenGLRenderer",
    "ARKit", "AssetsLibraryServices", "AudioToolbox", "AudioToolboxCore", "AuthenticationServices",
    "AVFAudio", "AVFCore", "AVFoundation", "AVKit", "AXCoreUtilities", "BackBoardServices",
    "BaseBoard", "BoardServices", "CFNetwork", "CloudKit", "Combine", "Contacts", "ContactsUI",
    "CoreAnimation", "CoreAudio", "CoreAutoLayout", "CoreBluetooth", "CoreData", "CoreFoundation",
    "CoreGraphics", "CoreImage", "CoreLocation", "CoreML", "CoreMedia", "CoreMotion",
    "CoreServices", "CoreServicesInternal", "CoreTelephony", "CoreText", "CoreUI", "CoreVideo",
    "DocumentManager", "EventKit", "ExternalAccessory", "FileProvider", "Foundation",
    "FrontBoard", "FrontBoardServices", "GameController", "GameKit", "GLKit", "GraphicsServices",
    "HIToolbox", "IOKit", "IOSurface", "ImageIO", "JavaScriptCore", "LaunchServices",
    "LocalAuthentication", "MapKit", "MediaToolbox", "Metal", "MetalKit",
    "MetalPerformanceShaders", "MobileCoreServices", "Network", "OpenGLES", "Photos", "PhotosUI",
    "QuartzCore", "RealityKit", "RunningBoardServices", "SafariServices", "SceneKit", "Security",
    "SkyLight", "SpriteKit", "StoreKit", "SwiftUI", "SwiftUICore", "SystemConfiguration",
    "TextInput", "TextInputCore", "TextInputUI", "UIAccessibility", "UIFoundation", "UIKit",
    "UIKitCore", "UIKitServices", "UserNotifications", "VideoToolbox", "Vision", "WebCore",
    "WebKit", "WebKitLegacy", "libGPUSupportMercury"};

constexpr std::array<std::string_view, 15> kAndroidSystemLibraries = {
    "libc.so",   "libart.so", "libbase.so",     "libutils.so",   "libandroid_runtime.so",
    "libunity.so", "libmain.so", "libhwui.so",  "linker64",      "linker",
    "app_process64", "libc++_shared.so", "libdl.so", "libm.so", "liblog.so"};

constexpr std::array<std::string_view, 4> kAndroidSystemFolders = {"/system/", "/apex/", "/vendor/",
                                                                   "/bionic/"};

constexpr std::array<std::string_view, 22> kJavaLibraryPackages = {
    "java.",       "javax.",       "android.",   "androidx.",        "kotlin.",
    "kotlinx.",    "com.android.", "dalvik.",    "sun.",             "libcore.",
    "com.google.android.", "com.google.firebase.", "com.unity3d.", "com.epicgames.",
    "org.chromium.", "okhttp3.",   "okio.",      "retrofit2.",       "io.reactivex.",
    "com.facebook.", "org.json.",  "jdk.internal."};

constexpr std::array<std::string_view, 11> kUnityLibraryPrefixes = {
    "UnityEngine", "UnityEditor", "Unity.",     "System.",    "System:", "Mono.",
    "Microsoft.",  "TMPro.",      "DG.Tweening", "Cysharp.",  "Newtonsoft."};

constexpr std::array<std::string_view, 13> kUnrealEngineModules = {
    "UE4Editor-", "UnrealEditor-", "UE4-",       "UE5-",     "ntdll",  "KERNELBASE", "kernel32",
    "ucrtbase",   "VCRUNTIME",     "msvcp",      "libc.so",  "libpthread", "libdl"};

std::string_view baseName(std::string_view path) {
  size_t slash = path.find_last_of('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

bool appleFrameIsInApp(const StackFrame& frame) {
  if (isAppleSystemModule(frame.module)) return false;
  if (frame.module == "UnityFramework") return isGeneratedGameMethod(frame.symbol);
  return !startsWith(frame.symbol, "il2cpp::") && !startsWith(frame.symbol, "UnityEngine");
}

bool androidNativeFrameIsInApp(const StackFrame& frame) {
  if (startsWithAny(frame.module, kAndroidSystemFolders)) return false;
  std::string_view library = baseName(frame.module);
  if (isOneOf(library, kAndroidSystemLibraries)) return false;
  if (library == "libil2cpp.so") return isGeneratedGameMethod(frame.symbol);
  return true;
}

bool unityFrameIsInApp(const StackFrame& frame) {
  if (startsWithAny(frame.symbol, kUnityLibraryPrefixes)) return false;
  // Packages resolved by the package manager live under Library/PackageCache; Windows paths
  // spell the same folder with backslashes.
  return !(frame.file && (frame.file->find("/PackageCache/") != std::string::npos ||
                          frame.file->find("\\PackageCache\\") != std::string::npos));
}

bool unrealFrameIsInApp(const StackFrame& frame) {
  if (startsWithAny(frame.module, kUnrealEngineModules)) return false;
  return !(frame.file && (frame.file->find("/Engine/Source/") != std::string::npos ||
                          frame.file->find("\\Engine\\Source\\") != std::string::npos));
}

}  // namespace

bool isGeneratedGameMethod(std::string_view symbol) {
  static const base::Regex generated = compileParserPattern("_m[0-9A-F]{6,}");
  if (symbol.find("_m") == std::string_view::npos || !generated.test(symbol)) return false;
  return !isOneOf(symbol.substr(0, symbol.find('_')), kEngineTypeNames);
}

bool isAppleSystemModule(std::string_view module) {
  return endsWith(module, ".dylib") || startsWith(module, "libswift") || module == "dyld" ||
         startsWith(module, "com.apple.") || isOneOf(module, kAppleSystemModules);
}

bool matchesInAppPrefix(const StackFrame& frame, const std::vector<std::string>& inAppPrefixes) {
  for (const std::string& prefix : inAppPrefixes) {
    if (prefix.empty()) continue;
    if (startsWith(frame.module, prefix) || startsWith(frame.symbol, prefix) ||
        (frame.file && startsWith(*frame.file, prefix))) {
      return true;
    }
  }
  return false;
}

bool isInApp(const StackFrame& frame, FrameForm form, const std::vector<std::string>& inAppPrefixes) {
  if (matchesInAppPrefix(frame, inAppPrefixes)) return true;
  switch (form) {
    case FrameForm::appleWithAddress:
    case FrameForm::appleWithoutAddress: return appleFrameIsInApp(frame);
    case FrameForm::androidNative: return androidNativeFrameIsInApp(frame);
    case FrameForm::java: return !startsWithAny(frame.module, kJavaLibraryPackages);
    case FrameForm::unityWithLocation:
    case FrameForm::dotNet:
    case FrameForm::unityWithoutLocation: return unityFrameIsInApp(frame);
    case FrameForm::windows: return unrealFrameIsInApp(frame);
  }
  return true;
}

}  // namespace quillora::crash
