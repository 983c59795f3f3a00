#include "ai/analysis_stream.h"

#include <algorithm>
#include <vector>

#include "base/json.h"
#include "base/regex.h"
#include "base/text.h"

namespace quillora::ai {

AnalysisStream::AnalysisStream(std::string engineName, ProgressLabels labels, Emit emit)
    : m_engineName(std::move(engineName)), m_labels(std::move(labels)), m_emit(std::move(emit)) {
  // The key is a fixed identifier of ours, so it needs no escaping inside the pattern.
  if (m_labels.headline)
    m_headlinePattern = std::make_unique<base::Regex>("\"" + m_labels.headline->first +
                                                      R"re("\s*:\s*"((?:\\.|[^"\\])*)")re");
}

void AnalysisStream::thinking() {
  if (m_thinkingAnnounced) return;
  m_thinkingAnnounced = true;
  m_emit(m_engineName + " is thinking through the crash…");
}

void AnalysisStream::receive(std::string_view chunk) {
  if (chunk.empty()) return;
  m_text += chunk;
  if (!m_writingAnnounced) {
    m_writingAnnounced = true;
    if (m_labels.writing) m_emit(*m_labels.writing);
  }
  announceHeadline();
  announceMilestones();
}

void AnalysisStream::announceHeadline() {
  if (m_titleAnnounced || !m_labels.headline) return;
  auto match = m_headlinePattern->search(m_text);
  if (!match) return;
  auto decoded = base::parseJson("[\"" + std::string(match->group(1)) + "\"]");
  if (!decoded || decoded->empty() || !(*decoded)[0].is_string()) return;
  m_titleAnnounced = true;
  std::string value = (*decoded)[0].get<std::string>();
  if (base::graphemeCount(value) >= 91) value = std::string(base::prefixGraphemes(value, 90)) + "…";
  m_emit(m_labels.headline->second + value);
}

void AnalysisStream::announceMilestones() {
  // Keys that appear in the same chunk are announced in the order they appear in the text.
  std::vector<std::pair<size_t, const std::pair<std::string, std::string>*>> found;
  for (const auto& milestone : m_labels.milestones) {
    if (m_announcedKeys.count(milestone.first)) continue;
    std::string quoted = "\"" + milestone.first + "\"";
    for (size_t at = m_text.find(quoted); at != std::string::npos; at = m_text.find(quoted, at + 1)) {
      size_t next = m_text.find_first_not_of(" \t\r\n", at + quoted.size());
      if (next != std::string::npos && m_text[next] == ':') {
        found.emplace_back(at, &milestone);
        break;
      }
    }
  }
  std::sort(found.begin(), found.end());
  for (const auto& [at, milestone] : found) {
    m_announcedKeys.insert(milestone->first);
    m_emit(milestone->second);
  }
}

ProgressLabels analysisProgressLabels(std::string writingLine) {
  ProgressLabels labels;
  labels.writing = std::move(writingLine);
  labels.headline = std::make_pair(std::string("title"), std::string("Title: "));
  labels.milestones = {
      {"rootCause", "Explaining the root cause"},
      {"rootCauseCode", "Quoting the code that crashes"},
      {"fixSummary", "Describing the fix"},
      {"codeChanges", "Writing the code changes"},
      {"reproSteps", "Writing repro steps for QA"},
      {"affectedFiles", "Listing the files to change"},
      {"patch", "Building the patch"},
      {"testSuggestions", "Listing how to verify the fix"},
  };
  return labels;
}

}  // namespace quillora::ai
