#pragma once

#include <string>

namespace quillora::ai {

// An image read for an engine that takes inline images (a ticket's screenshot or video frame).
struct LoadedImage {
  std::string caption;
  std::string base64;   // the file's bytes in standard base64
  long long bytes = 0;  // the byte count before encoding
  std::string mimeType; // empty when unknown
};

} // namespace quillora::ai
