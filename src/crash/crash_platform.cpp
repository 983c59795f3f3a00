#include "crash/crash_platform.h"

namespace quillora::crash {

std::string_view displayName(CrashPlatform platform) {
  switch (platform) {
    case CrashPlatform::iOSNative: return "iOS / macOS (Swift, Obj-C)";
    case CrashPlatform::unity: return "Unity (IL2CPP / Mono)";
    case CrashPlatform::androidJava: return "Android (Java / Kotlin)";
    case CrashPlatform::androidNative: return "Android NDK (C / C++)";
    case CrashPlatform::unreal: return "Unreal Engine (C++)";
    case CrashPlatform::unknown: return "Unknown";
  }
  return "Unknown";
}

std::string_view shortName(CrashPlatform platform) {
  switch (platform) {
    case CrashPlatform::iOSNative: return "iOS";
    case CrashPlatform::unity: return "Unity";
    case CrashPlatform::androidJava: return "Android";
    case CrashPlatform::androidNative: return "NDK";
    case CrashPlatform::unreal: return "Unreal";
    case CrashPlatform::unknown: return "Unknown";
  }
  return "Unknown";
}

std::optional<CrashPlatform> crashPlatformFromDisplayName(std::string_view name) {
  for (CrashPlatform platform : kAllCrashPlatforms) {
    if (displayName(platform) == name) return platform;
  }
  return std::nullopt;
}

void to_json(base::Json& json, CrashPlatform platform) { json = std::string(displayName(platform)); }

void from_json(const base::Json& json, CrashPlatform& platform) {
  platform = json.is_string()
                 ? crashPlatformFromDisplayName(json.get<std::string>()).value_or(CrashPlatform::unknown)
                 : CrashPlatform::unknown;
}

}  // namespace quillora::crash
