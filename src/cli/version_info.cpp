#include "cli/version_info.h"

namespace quillora::cli {

const char* const kVersion = QUILLORA_VERSION;
const char* const kBuildNumber = QUILLORA_BUILD_NUMBER;
const char* const kReleaseDate = QUILLORA_RELEASE_DATE;

std::string versionLine() {
  return std::string("Quillora ") + kVersion + " (" + kBuildNumber + "), released " + kReleaseDate;
}

}  // namespace quillora::cli
