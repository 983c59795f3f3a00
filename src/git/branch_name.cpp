#include "git/branch_name.h"

#include "base/settings.h"
#include "base/text.h"

namespace quillora::git {

namespace {
constexpr size_t kSlugLength = 48;

std::string_view trimDashes(std::string_view s) {
  while (!s.empty() && s.front() == '-') s.remove_prefix(1);
  while (!s.empty() && s.back() == '-') s.remove_suffix(1);
  return s;
}
}  // namespace

std::string branchSlug(std::string_view title) {
  // After folding, anything that isn't a–z or 0–9 (other scripts, punctuation, spaces) is a
  // separator, so the slug is plain ASCII and always a safe ref piece.
  std::string folded = base::foldCaseAndDiacritics(title);
  std::string slug;
  bool inSeparator = false;
  for (char c : folded) {
    bool kept = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    if (kept) {
      slug.push_back(c);
      inSeparator = false;
    } else if (!inSeparator) {
      slug.push_back('-');
      inSeparator = true;
    }
  }
  std::string_view cut = trimDashes(slug);
  cut = trimDashes(cut.substr(0, kSlugLength));
  return cut.empty() ? std::string("crash") : std::string(cut);
}

std::string defaultBranchName(std::string_view title) {
  std::string prefix =
      base::Settings::shared().text("branchPrefix").value_or(std::string(kDefaultBranchPrefix));
  return prefix + branchSlug(title);
}

}  // namespace quillora::git
