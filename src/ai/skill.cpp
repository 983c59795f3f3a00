#include "ai/skill.h"

#include "base/error.h"
#include "base/files.h"
#include "base/paths.h"
#include "base/settings.h"
#include "base/strings.h"

namespace quillora::ai {

namespace {

constexpr std::string_view kCommon =
    "You are a senior engineer who fixes production crashes of games and apps. You read stack "
    "traces precisely, trace a bad value back to where it was created, and propose the smallest "
    "change that makes the crash impossible without hiding real errors.";

std::string_view platformAdvice(crash::CrashPlatform platform) {
  switch (platform) {
    case crash::CrashPlatform::unity:
      return "This crash comes from a Unity game (C#, Mono or IL2CPP). Know Unity's object "
             "lifetime: a destroyed UnityEngine.Object compares equal to null while the C# "
             "reference is alive, GetComponent and Find return null when nothing matches, fields "
             "assigned in the Inspector may be missing in some scenes or prefabs, and Awake, "
             "OnEnable, Start and Update run in an order that scripts often assume wrongly. "
             "Coroutines and callbacks may run after their object was destroyed or the scene "
             "changed. Prefer fixing the cause (a missing assignment, a wrong order, a stale "
             "reference) over scattering null checks, and keep fixes compatible with IL2CPP "
             "(no reflection-heavy code).";
    case crash::CrashPlatform::iOSNative:
      return "This crash comes from an iOS or macOS app (Swift, Objective-C). Know the usual "
             "causes: force unwraps and implicitly unwrapped optionals, out-of-range array "
             "access, UIKit used off the main thread, KVO and notification observers that "
             "outlive their object, unrecognized selectors, and over-released objects. Use "
             "guard-let, optional chaining and main-queue dispatch where the code's own style "
             "does.";
    case crash::CrashPlatform::androidJava:
      return "This crash comes from an Android app (Java, Kotlin). Know the lifecycle of "
             "activities and fragments (views used after onDestroyView, fragments not attached), "
             "!! and lateinit in Kotlin, platform types from Java, work on the main thread, "
             "concurrent modification of collections, and R8-obfuscated names. Fix the lifecycle "
             "or nullability mistake itself.";
    case crash::CrashPlatform::androidNative:
      return "This crash comes from native Android code (C, C++ through the NDK). Read signals "
             "and fault addresses: SIGSEGV near 0 is a null dereference, SIGABRT is usually an "
             "assertion or std::terminate, and fault addresses far from 0 suggest use after free "
             "or a buffer overrun. Mind JNI local and global references, threads attached to the "
             "JVM, and object lifetimes across the JNI boundary.";
    case crash::CrashPlatform::unreal:
      return "This crash comes from an Unreal Engine game (C++). Know UObject lifetime and "
             "garbage collection (raw pointers to UObjects without UPROPERTY, IsValid versus "
             "nullptr checks, pending-kill actors), check() and ensure() failures, Blueprint "
             "calls into C++ with unexpected inputs, and work done off the game thread.";
    case crash::CrashPlatform::unknown:
      break;
  }
  return "The platform of this crash could not be identified; infer it from the trace and the "
         "source and reason from there.";
}

}  // namespace

std::string defaultSkill(crash::CrashPlatform platform) {
  return std::string(kCommon) + "\n\n" + std::string(platformAdvice(platform));
}

std::string loadSkill(crash::CrashPlatform platform) {
  auto setting = base::Settings::shared().text("skillFile");
  if (!setting || base::trim(*setting).empty()) return defaultSkill(platform);
  auto path = base::expandTilde(base::trim(*setting));
  std::string reason;
  auto content = base::readFile(path, &reason);
  if (!content) {
    throw ConfigError("Can't read the skill file " + path.string() + " (setting \"skillFile\"): " +
                      reason);
  }
  if (base::trim(*content).empty()) return defaultSkill(platform);
  return base::trimmed(*content);
}

}  // namespace quillora::ai
