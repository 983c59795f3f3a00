#pragma once

#include "ai/ai_backend.h"
#include "ai/analysis_engine.h"
#include "ai/usage_recording.h"
#include "base/error.h"
#include "cost/usage_meter.h"

#include <functional>
#include <memory>
#include <string>

// Builds the engine the user chose, behind the one interface the analyze flow and triage use.
namespace quillora::ai {

// An engine this build doesn't have yet. Exit 1.
class EngineUnavailableError : public Error {
public:
  using Error::Error;
  [[nodiscard]] std::string kind() const override { return "unavailable"; }
};

// What every engine is built with.
struct EngineOptions {
  // Empty: the engine's model setting, else its default.
  std::string model;
  // Progress lines, from the thread that runs the call.
  std::function<void(const std::string& line)> progress;
  // The monthly budget's notice, shown as a warning.
  std::function<void(const std::string& message)> warning;
  // Shared by the calls of one run; may be null.
  std::shared_ptr<cost::UsageMeter> usageMeter;
  // The ledger and the kind of the calls.
  UsageRecording recording;
};

// The engine of `backend`, configured from the settings. Throws AIError (missingAPIKey for an API
// engine without its key), ConfigError for a bad setting, EngineUnavailableError for an engine
// this build lacks.
std::unique_ptr<AnalysisEngine> makeEngine(AIBackend backend, EngineOptions options);

// The note printed before the first engine call: what leaves the machine, and for whom. Ends
// with a newline.
std::string consentNote(AIBackend backend, const std::string& model);

} // namespace quillora::ai
