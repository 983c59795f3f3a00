#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

// The assembled prompt every engine takes; engines differ only in how they send it.
namespace quillora::ai {

// The progress labels of one kind of answer (read by AnalysisStream).
struct ProgressLabels {
  // The line announced on the first answer text; none for answers that announce nothing.
  std::optional<std::string> writing;
  // (JSON key, display prefix) of the headline, e.g. ("title", "Title: ").
  std::optional<std::pair<std::string, std::string>> headline;
  // (JSON key, label) pairs, announced once each when the key first appears.
  std::vector<std::pair<std::string, std::string>> milestones;
};

struct StructuredPrompt {
  std::string system;  // skill, output contract, optional language instruction
  std::string user;
  std::string schema;  // one of the fixed schema texts, verbatim
  std::string schemaName;
  std::string summary;  // "Sent … to <engine>"
  ProgressLabels labels;
  std::optional<std::string> repo;  // working directory of the Claude Code engine
};

}  // namespace quillora::ai
