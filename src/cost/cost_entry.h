#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/json.h"
#include "base/time.h"
#include "cost/analysis_usage.h"

namespace quillora::cost {

// The purposes a ledger entry's `kind` names. Stored as text, so a newer program may add more.
inline constexpr std::string_view kKindAnalysis = "analysis";              // analyze, the app
inline constexpr std::string_view kKindPastedTrace = "pastedTrace";        // a trace pasted in the app
inline constexpr std::string_view kKindTriage = "triage";                  // overnight triage
inline constexpr std::string_view kKindSecondOpinion = "secondOpinion";    // another engine's view
inline constexpr std::string_view kKindTicketAnalysis = "ticketAnalysis";  // a Jira/Trello ticket
inline constexpr std::string_view kKindRegressionTest = "regressionTest";  // the test writer

// One row of the cost ledger: one AI call, successful or not.
struct CostEntry {
  std::string id;  // upper-case UUID
  base::Clock::time_point date;
  std::string kind;  // what the call was for, one of the kinds above
  AnalysisUsage usage;
  std::optional<double> costUSD;  // absent: the model has no price
  std::optional<std::string> recordID;  // the history record the call belongs to
  bool failed = false;  // the call gave no answer; its tokens still cost money
};

// The field names as keys, the date in ISO 8601; absent optionals are left out.
base::Json toJson(const CostEntry& entry);

}  // namespace quillora::cost
