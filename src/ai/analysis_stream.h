#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "ai/structured_prompt.h"
#include "base/regex.h"

namespace quillora::ai {

// Turns one streamed answer into progress lines, each stage announced once: thinking, writing,
// the headline, then the milestones as their keys appear. One stream per request; not thread-safe.
class AnalysisStream {
 public:
  using Emit = std::function<void(const std::string& line)>;

  // engineName: the engine's display name, used in the thinking line.
  AnalysisStream(std::string engineName, ProgressLabels labels, Emit emit);

  // The first sign of model reasoning: "<engine> is thinking through the crash…" once.
  void thinking();
  // A chunk of answer text: the writing line once, then the headline and milestones it reveals.
  void receive(std::string_view chunk);

  // Everything received so far.
  [[nodiscard]] const std::string& text() const { return m_text; }

 private:
  void announceHeadline();
  void announceMilestones();

  std::string m_engineName;
  ProgressLabels m_labels;
  Emit m_emit;
  std::unique_ptr<base::Regex> m_headlinePattern;  // built once per stream from the headline key
  std::string m_text;
  bool m_thinkingAnnounced = false;
  bool m_writingAnnounced = false;
  bool m_titleAnnounced = false;
  std::set<std::string> m_announcedKeys;
};

// The milestone labels of an analysis answer, in schema order.
ProgressLabels analysisProgressLabels(std::string writingLine);

}  // namespace quillora::ai
