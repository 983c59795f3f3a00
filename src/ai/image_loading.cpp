#include "ai/image_loading.h"

#include "ai/ai_error.h"
#include "base/crypto.h"
#include "base/files.h"
#include "base/strings.h"

namespace quillora::ai {

std::string imageMimeType(std::string_view bytes, std::string_view fileName) {
  if (bytes.substr(0, 8) == "\x89PNG\r\n\x1a\n") return "image/png";
  if (bytes.substr(0, 3) == "\xFF\xD8\xFF") return "image/jpeg";
  if (bytes.substr(0, 4) == "GIF8") return "image/gif";
  if (bytes.size() >= 12 && bytes.substr(0, 4) == "RIFF" && bytes.substr(8, 4) == "WEBP")
    return "image/webp";
  std::string name = base::toLowerASCII(fileName);
  auto endsWith = [&](std::string_view suffix) {
    return name.size() >= suffix.size() &&
           name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
  };
  if (endsWith(".png")) return "image/png";
  if (endsWith(".jpg") || endsWith(".jpeg")) return "image/jpeg";
  if (endsWith(".gif")) return "image/gif";
  if (endsWith(".webp")) return "image/webp";
  return "";
}

std::vector<LoadedImage> loadImages(const std::vector<PromptImage>& images) {
  std::vector<LoadedImage> loaded;
  loaded.reserve(images.size());
  for (const auto& image : images) {
    auto path = imagePath(image);
    std::string reason;
    auto bytes = base::readFile(path, &reason);
    if (!bytes)
      throw AIError::failed("Couldn't read the picture " + path.string() + ": " + reason + ".");
    LoadedImage item;
    item.caption = image.caption;
    item.base64 = base::base64Encode(*bytes);
    item.bytes = static_cast<long long>(bytes->size());
    item.mimeType = imageMimeType(*bytes, path.filename().string());
    loaded.push_back(std::move(item));
  }
  return loaded;
}

} // namespace quillora::ai
