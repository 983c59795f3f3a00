#pragma once

#include <string>
#include <string_view>

// How a fix branch is named when the user gives no name.
namespace quillora::git {

// The default of the `branchPrefix` setting.
inline constexpr std::string_view kDefaultBranchPrefix = "fix/crash-";

// The title as a branch-name piece: case and diacritics folded, every run of characters outside
// a–z and 0–9 as one "-", "-" trimmed from both ends, the first 48 characters kept, trimmed again;
// "crash" when nothing is left.
std::string branchSlug(std::string_view title);

// The configured `branchPrefix` (default "fix/crash-") + the slug of the title.
std::string defaultBranchName(std::string_view title);

}  // namespace quillora::git
