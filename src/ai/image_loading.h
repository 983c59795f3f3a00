#pragma once

#include "ai/bug_ticket.h"

#include <string_view>
#include <vector>

// Pictures read for the engines that send them inline (the API engines).
namespace quillora::ai {

// Reads each picture in order. The MIME type comes from the file's first bytes (PNG, JPEG, GIF,
// WebP), else from its extension, else stays empty. Throws AIError failed "Couldn't read the
// picture <path>: <reason>." so that the numbered list of the prompt never loses an entry.
std::vector<LoadedImage> loadImages(const std::vector<PromptImage>& images);

// The MIME type of an image by its content, then by its file name; empty when unknown.
std::string imageMimeType(std::string_view bytes, std::string_view fileName);

} // namespace quillora::ai
