#pragma once

#include "cost/analysis_usage.h"
#include "cost/cost_entry.h"
#include "cost/cost_ledger.h"
#include "cost/price_table.h"
#include "cost/usage_meter.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

// How an engine meters one AI call and writes it to the cost ledger, successful or not.
namespace quillora::ai {

// Where an engine's finished calls go. Set by the caller before a call.
struct UsageRecording {
  // Null: nothing is written (model listing, tests of the transport alone).
  std::shared_ptr<cost::CostLedger> ledger;
  std::string kind = std::string(cost::kKindAnalysis);
  std::optional<std::string> recordID;
  // Built before the call, so that a malformed price override fails before money is spent;
  // nullopt: the configured prices, read when the call ends.
  std::optional<cost::PriceTable> prices;
};

// One finished call: its usage and, when a ledger was given, the entry written.
struct RecordedCall {
  cost::AnalysisUsage usage;
  std::optional<cost::CostEntry> entry;
  bool failed = false;
};

// Meters one call. The reports of its responses are kept for the call's own ledger entry and
// passed on to the shared meter, which may total several calls of a run. Used from the thread
// that runs the call.
class CallMeter {
public:
  CallMeter(std::string backend, std::string model, std::shared_ptr<cost::UsageMeter> shared);

  void report(const cost::UsageReport& report);
  // Ends the call: sums its reports (zero tokens when none came), closes the shared meter's
  // response and writes the ledger entry. Throws what the ledger throws.
  RecordedCall finish(const UsageRecording& recording, bool failed);

private:
  std::string m_backend;
  std::string m_model;
  std::shared_ptr<cost::UsageMeter> m_shared;
  cost::UsageMeter m_call;
  std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

} // namespace quillora::ai
