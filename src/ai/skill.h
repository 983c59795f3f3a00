#pragma once

#include <string>

#include "crash/crash_platform.h"

// The skill: the expert instructions that open the system text of every analysis.
namespace quillora::ai {

// The built-in skill for a platform (Unity, iOS, Android, NDK, Unreal, or a general one).
std::string defaultSkill(crash::CrashPlatform platform);

// The file named by the "skillFile" setting ("~" expanded) when set, else the built-in skill.
// A file that is empty or only white space means the built-in skill. Throws ConfigError "Can't read
// the skill file <path> (setting \"skillFile\"): <reason>" when the file can't be read.
std::string loadSkill(crash::CrashPlatform platform);

}  // namespace quillora::ai
