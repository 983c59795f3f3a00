#pragma once

#include <string>

namespace quillora::crash {

// A fresh random UUID in its canonical lower-case text form. Frames and threads take one on
// creation and on decoding, so lists can tell equal-looking rows apart. Thread-safe.
std::string newIdentifier();

}  // namespace quillora::crash
