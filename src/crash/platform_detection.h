#pragma once

#include <string_view>

#include "crash/crash_platform.h"

namespace quillora::crash {

// The weighted detection scores of one text: matches of each platform's pattern times its
// weight (unity 3, unreal 3, androidJava 2, androidNative 2, iOSNative 1).
struct PlatformScores {
  size_t unity = 0;
  size_t unreal = 0;
  size_t androidJava = 0;
  size_t androidNative = 0;
  size_t iOSNative = 0;
};

// Counts the five detection patterns over the whole text (anchors match at every line).
PlatformScores scorePlatforms(std::string_view text);

// The decision: unity when it scored and is not below unreal; unreal above 3; else the highest
// score above 0, ties going to the earlier of androidJava, androidNative, iOSNative (the order of
// the detection table); else unknown.
CrashPlatform decidePlatform(const PlatformScores& scores);

inline CrashPlatform detectPlatform(std::string_view text) {
  return decidePlatform(scorePlatforms(text));
}

}  // namespace quillora::crash
