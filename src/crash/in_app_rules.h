#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "crash/stack_frame.h"

namespace quillora::crash {

// The shape of trace line a frame was read from. It picks the in-app rule set: Apple frames,
// Android native frames, Java/Kotlin frames, Unity managed frames (.NET style included) or
// Windows/Unreal frames.
enum class FrameForm {
  appleWithAddress,
  appleWithoutAddress,
  androidNative,
  java,
  unityWithLocation,
  dotNet,
  windows,
  unityWithoutLocation,
};

// True for an IL2CPP-generated method of the game: the symbol holds `_m` followed by six or more
// upper-case hex digits, and the part before its first "_" isn't one of the engine and library
// type names (List, Dictionary, MonoBehaviour, …).
bool isGeneratedGameMethod(std::string_view symbol);

// True for a module of the operating system on Apple platforms (".dylib" libraries, "libswift…",
// "dyld", and the system frameworks such as UIKitCore or CoreFoundation).
bool isAppleSystemModule(std::string_view module);

// True when the frame's module, file or symbol starts with one of the (non-empty) prefixes.
bool matchesInAppPrefix(const StackFrame& frame, const std::vector<std::string>& inAppPrefixes);

// Whether a frame is the application's own. Configured prefixes (empty entries ignored) make a
// frame in-app when its module, file or symbol starts with one; otherwise the rule set of its
// form decides, and a frame is in-app unless a rule says otherwise.
bool isInApp(const StackFrame& frame, FrameForm form, const std::vector<std::string>& inAppPrefixes);

}  // namespace quillora::crash
