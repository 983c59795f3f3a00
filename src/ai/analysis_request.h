#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "ai/bug_ticket.h"
#include "ai/code_snippet.h"
#include "crash/crash_report.h"

namespace quillora::ai {

// One analysis to run: the crash, what the developer adds, and the source collected for it.
struct AnalysisRequest {
  crash::CrashReport report;  // an empty report for a ticket without a trace
  std::optional<std::filesystem::path> repo;  // required by the Claude Code engine
  std::string notes;
  std::optional<std::string> skill;  // system instructions; the platform's default when absent
  std::vector<CodeSnippet> snippets;
  std::optional<BugTicket> ticket;

  // True when the report's raw text holds more than white space.
  [[nodiscard]] bool hasTrace() const;
};

}  // namespace quillora::ai
