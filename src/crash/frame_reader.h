#pragma once

#include <optional>
#include <string_view>

#include "crash/crash_platform.h"
#include "crash/in_app_rules.h"
#include "crash/stack_frame.h"

namespace quillora::crash {

// Lines longer than this are never frames: real frames, even of deeply templated C++, stay far
// below it, and skipping them keeps a megabyte of garbage on one line from costing seconds.
inline constexpr size_t kMaxFrameLineLength = 8192;

// One frame read from a line, with the form it had. isInApp is not decided yet.
struct FrameReading {
  StackFrame frame;
  FrameForm form = FrameForm::appleWithAddress;
  bool hasIndex = false;  // the line carried its own index (Apple, tombstone)
};

// Tries the frame forms that suit `platform`, in a fixed order, on one line whose surrounding
// white space is already removed; `raw` is the line as it stood in the trace. Never throws.
//
// Orders: iOS: Apple with address, Apple without. Unity: both Apple forms, Android native, Unity
// with location, Java (only with a Java location), .NET, Unity without location, Windows.
// Android Java: Java, the Crashlytics console form without "at" (read as Java), Android native.
// Android native: Android native, Java. Unreal: Windows, both Apple forms, Android native.
// Unknown: both Apple forms, Android native, Java (only with a Java location), Unity with
// location, .NET, Windows, Unity without location.
std::optional<FrameReading> readFrame(std::string_view line, std::string_view raw,
                                      CrashPlatform platform);

}  // namespace quillora::crash
