#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "crash/crash_report.h"
#include "crash/crash_signature.h"

// The word sets the duplicate finder compares. They are made from text lines, not from frames,
// so that a crash being analysed now and a record read back from disk give equal tokens for
// equal crashes.
namespace quillora::history {

// Version of the signature rules and of the token rules below, written into the index: an index
// of another version is rebuilt. A change of the token rules goes with a new signature version.
inline constexpr int kSignatureVersion = crash::kCrashSignatureVersion;

// Frame lines of the crashed thread as the crash summary text writes them ("3 ★ Game  Player.Update
// (Player.cs:42)"), at most `limit`.
std::vector<std::string> topFrameLines(const crash::CrashReport& report, size_t limit);

// A frame's symbol reduced to what stays the same across builds: no parameters, addresses,
// offsets, line numbers or compiler-generated numbers; lower case. Empty when nothing
// meaningful is left (an unsymbolicated address).
std::string frameKey(std::string_view symbol);

// The keys of the frames in `lines` (as topFrameLines writes them): the in-app frames when there
// are any, else all frames; innermost first, without repeats, at most 8.
std::vector<std::string> frameTokens(const std::vector<std::string>& lines);

// Lower-case words of at least three letters, without numbers, hex values and filler words;
// sorted, without repeats, at most 48.
std::vector<std::string> textTokens(const std::vector<std::string_view>& texts);

}  // namespace quillora::history
