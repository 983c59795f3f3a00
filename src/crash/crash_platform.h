#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "base/json.h"

namespace quillora::crash {

// The platform that produced a crash. It encodes in JSON as its display name.
enum class CrashPlatform { iOSNative, unity, androidJava, androidNative, unreal, unknown };

// Every case, in declaration order.
inline constexpr std::array<CrashPlatform, 6> kAllCrashPlatforms = {
    CrashPlatform::iOSNative,     CrashPlatform::unity,  CrashPlatform::androidJava,
    CrashPlatform::androidNative, CrashPlatform::unreal, CrashPlatform::unknown};

// The display name ("Unity (IL2CPP / Mono)"), used everywhere except compact places.
std::string_view displayName(CrashPlatform platform);
// The short name for lists and badges ("Unity", "NDK").
std::string_view shortName(CrashPlatform platform);
// The case whose display name is `name`; nullopt for any other text.
std::optional<CrashPlatform> crashPlatformFromDisplayName(std::string_view name);

// JSON: the display name. Decoding an unknown name gives `unknown` rather than failing.
void to_json(base::Json& json, CrashPlatform platform);
void from_json(const base::Json& json, CrashPlatform& platform);

}  // namespace quillora::crash
