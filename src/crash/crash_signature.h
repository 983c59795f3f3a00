#pragma once

#include <string>
#include <string_view>

#include "crash/crash_report.h"

namespace quillora::crash {

// The version of the signature rules. Stores that keep signatures (the history index) rebuild
// them when this changes.
inline constexpr int kCrashSignatureVersion = 1;

// The duplicate signature of a crash: a readable string that stays the same for the same crash
// across builds, devices and addresses, and differs when the exception or the app code differs.
// Rules (version 1, see docs/crash-parsing.md): "v1|" + the exception type (or "Crash") + one "|"
// part per frame: the normalised symbols of the first three in-app frames of the crashed thread,
// or of its first three frames when none is in-app; a crash without frames adds its normalised
// message instead, or the first line of its text when it has no message either.
std::string crashSignature(const CrashReport& report);

// One frame's part of the signature: the symbol without addresses, offsets, line numbers,
// parameter lists, generic arguments, IL2CPP method hashes and lambda or anonymous-class ids;
// the module's file name when nothing is left.
std::string signatureFramePart(const StackFrame& frame);

// A message with addresses, numbers and identifiers made neutral ("#"), cut to 100 characters.
std::string signatureMessagePart(std::string_view message);

}  // namespace quillora::crash
