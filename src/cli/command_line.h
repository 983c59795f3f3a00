#pragma once

#include <string>
#include <vector>

namespace quillora::cli {

// Runs one command-line invocation (the arguments after the program path, with platform
// user-default pairs already dropped) and returns the process exit code. Never throws.
int runCommandLine(const std::vector<std::string>& args);

// The exit code of an error, chosen by its kind in this one place: usage and configuration
// errors 2, budget errors 3, an unverified fix 5, everything else 1.
int exitCodeForKind(const std::string& kind);

}  // namespace quillora::cli
