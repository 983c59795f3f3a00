#pragma once

#include <array>
#include <string>
#include <string_view>

namespace quillora::crash {

// A random UUID kept inline (no allocation: a long trace has tens of thousands of frames).
struct Identifier {
  std::array<char, 36> text{};
  // The canonical lower-case form, "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx".
  [[nodiscard]] std::string_view view() const { return {text.data(), text.size()}; }
  [[nodiscard]] std::string str() const { return std::string(view()); }
  friend bool operator==(const Identifier&, const Identifier&) = default;
};

// A fresh random identifier. Frames and threads take one on creation and on decoding, so lists
// can tell equal-looking rows apart. Thread-safe.
Identifier newIdentifier();

}  // namespace quillora::crash
