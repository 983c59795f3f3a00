#pragma once

#include <string>

namespace quillora::base {

// A random (version 4) UUID in upper case, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F", the form
// every store uses for its ids. Throws quillora::Error when the system has no randomness to give.
std::string makeUUID();

}  // namespace quillora::base
