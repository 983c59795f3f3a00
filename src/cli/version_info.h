#pragma once

#include <string>

namespace quillora::cli {

extern const char* const kVersion;
extern const char* const kBuildNumber;
extern const char* const kReleaseDate;

// "Quillora <version> (<build>), released <date>".
std::string versionLine();

}  // namespace quillora::cli
