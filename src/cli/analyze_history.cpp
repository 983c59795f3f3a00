#include "cli/analyze_history.h"

#include "cli/cli_output.h"
#include "cli/history_output.h"

namespace quillora::cli {

std::vector<history::DuplicateMatch> lookForDuplicates(const crash::CrashReport& report,
                                                       const std::string& signature,
                                                       history::HistoryStore& store) {
  std::vector<history::DuplicateMatch> matches;
  try {
    history::DuplicateFinder finder({std::make_shared<history::HistoryDuplicateSource>(store)});
    matches = finder.find(report, signature);
  } catch (const Error& error) {
    CLIOutput::shared().warning(std::string("Couldn't look for earlier analyses: ") + error.what());
    return {};
  }
  for (const auto& match : matches) CLIOutput::shared().progress(duplicateLine(match));
  return matches;
}

history::AnalysisRecord analyzeRecord(const crash::CrashReport& report, const std::string& signature,
                                      ai::FixAnalysis analysis, ai::AIBackend backend,
                                      const std::string& model) {
  history::AnalysisRecord record = history::recordForCrash(report, signature);
  record.origin = "pasted";
  record.subject.kind = "pasted";
  record.analysis = std::move(analysis);
  const auto& engine = ai::backendInfo(backend);
  record.engineLabel = std::string(engine.displayName) + " (" + model + ")";
  record.backend = std::string(engine.rawValue);
  return record;
}

std::string saveToHistory(history::AnalysisRecord record, history::HistoryStore& store) {
  std::string id = store.save(std::move(record));
  CLIOutput::shared().progress("Saved to the history: " + id);
  return id;
}

}  // namespace quillora::cli
