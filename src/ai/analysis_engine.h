#pragma once

#include "ai/ai_backend.h"
#include "ai/bug_ticket.h"
#include "ai/fix_analysis.h"
#include "ai/structured_prompt.h"
#include "ai/usage_recording.h"

#include <optional>
#include <string>
#include <vector>

// What the analyze flow (and triage) sees of an engine, whichever transport it uses.
namespace quillora::ai {

class AnalysisEngine {
public:
  virtual ~AnalysisEngine() = default;

  [[nodiscard]] virtual AIBackend backend() const = 0;
  // The model the engine asks for: the --model option, else the engine's model setting.
  [[nodiscard]] virtual std::string modelName() const = 0;

  // Runs one analysis of `prompt` (built for this engine) and decodes the answer. `images` are the
  // ticket's pictures: the API engines send them inline, Claude Code opens the files itself.
  // Throws AIError, BudgetError when the monthly budget blocks the call, LedgerError, and the
  // transport's own failures. Every call that was started is written to the ledger of the
  // engine's UsageRecording, failed or not.
  virtual FixAnalysis analyze(const StructuredPrompt& prompt,
                              const std::vector<PromptImage>& images) = 0;

  // The usage and ledger entry of the last call that was started; nullopt before the first.
  [[nodiscard]] virtual const std::optional<RecordedCall>& lastCall() const = 0;
};

} // namespace quillora::ai
