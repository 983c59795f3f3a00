#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ai/ai_backend.h"
#include "base/json.h"
#include "cli/arguments.h"

namespace quillora::cli {

// The --min-verification threshold, strongest first.
enum class VerificationThreshold { verified, testsPass, buildOnly };

// The analyze command's options after every validation rule has passed.
struct AnalyzeOptions {
  std::optional<std::string> tracePath;  // "-" means standard input
  std::optional<std::string> appQuery;
  std::optional<std::string> issueID;
  base::Json app;  // the configured RemoteProject matched by --app, or null
  std::optional<int> days;
  std::string notes;
  std::optional<std::string> repo;
  ai::AIBackend backend = ai::AIBackend::claudeAPI;
  std::string model;
  bool symbolicate = false;
  std::vector<std::string> symbols;
  bool saveHistory = false;
  bool noDuplicates = false;
  bool branch = false;
  std::optional<std::string> base;
  std::optional<std::string> branchName;
  bool verify = false;
  bool failOnUnverified = false;
  VerificationThreshold minVerification = VerificationThreshold::verified;
  bool dryRun = false;
  std::string format;
  std::optional<std::string> out;
  std::optional<std::string> markdownOut;
};

// Checks every rule of the analyze command, before any network or engine work, and throws
// CLIUsageError with the rule's text. Reads the --notes-file and the configured apps.
AnalyzeOptions validateAnalyzeOptions(const ParsedArguments& args, const std::string& format);

// The crash text of --trace: the file, or all of standard input for "-". Throws CLIUsageError with
// "No such file: <path>", "<path> is empty." or "Nothing came in on stdin."
std::string readTraceText(const std::string& path);

}  // namespace quillora::cli
