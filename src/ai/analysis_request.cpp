#include "ai/analysis_request.h"

#include "base/strings.h"

namespace quillora::ai {

bool AnalysisRequest::hasTrace() const { return !base::trim(report.rawText).empty(); }

}  // namespace quillora::ai
