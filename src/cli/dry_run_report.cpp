#include "cli/dry_run_report.h"

#include <fmt/format.h>

#include "ai/analysis_prompt.h"
#include "ai/repo_context_builder.h"
#include "ai/skill.h"
#include "base/strings.h"
#include "cost/price_table.h"
#include "cli/cli_output.h"

namespace quillora::cli {

namespace {

// A common rule of thumb for source code and English prose; the real count is the provider's.
constexpr size_t kBytesPerToken = 4;

std::string crashLabel(const AnalyzeOptions& o, const std::string& traceText) {
  std::string source = *o.tracePath == "-" ? std::string("stdin") : *o.tracePath;
  return fmt::format("{} ({} bytes)", source, traceText.size());
}

std::string fileExtent(const ai::CodeSnippet& s) {
  if (s.isWholeFile) return fmt::format("entire file, lines {}-{}", s.startLine, s.endLine);
  return fmt::format("lines {}-{}", s.startLine, s.endLine);
}

std::string tokenLine(const DryRun& d) {
  return fmt::format("{} ({} bytes of system text, user text and schema / {})", d.estimatedInputTokens,
                     d.inputBytes, kBytesPerToken);
}

std::string costLine(const DryRun& d, const AnalyzeOptions& o) {
  if (!d.costRangeUSD) {
    return "no price for " + o.model + " (add one under \"prices\" in the config)";
  }
  return fmt::format("${} to ${} ({} to {} output tokens)", base::formatFixed(d.costRangeUSD->first, 4),
                     base::formatFixed(d.costRangeUSD->second, 4), kLowOutputTokens, kHighOutputTokens);
}

}  // namespace

DryRun prepareDryRun(const AnalyzeOptions& options, const crash::CrashReport& report) {
  ai::AnalysisRequest request;
  request.report = report;
  request.notes = options.notes;
  request.skill = ai::loadSkill(report.platform);
  bool filesReadable = ai::readsFilesItself(options.backend);
  DryRun dryRun;
  if (options.repo) {
    request.repo = *options.repo;
    ai::RepoContextBuilder builder(*options.repo, report.platform);
    request.snippets = builder.build(
        report, [](const std::string& line) { CLIOutput::shared().progress(line); }, filesReadable);
  }
  dryRun.prompt = ai::buildAnalysisPrompt(request, options.backend, filesReadable);
  dryRun.snippets = request.snippets;
  dryRun.inputBytes = dryRun.prompt.system.size() + dryRun.prompt.user.size() + dryRun.prompt.schema.size();
  dryRun.estimatedInputTokens =
      static_cast<long long>((dryRun.inputBytes + kBytesPerToken - 1) / kBytesPerToken);
  cost::PriceTable prices = cost::PriceTable::configured();
  auto priced = [&](long long outputTokens) {
    cost::AnalysisUsage usage;
    usage.backend = std::string(ai::backendInfo(options.backend).rawValue);
    usage.model = options.model;
    usage.inputTokens = dryRun.estimatedInputTokens;
    usage.outputTokens = outputTokens;
    return prices.cost(usage, base::Clock::now());
  };
  auto low = priced(kLowOutputTokens);
  auto high = priced(kHighOutputTokens);
  if (low && high) dryRun.costRangeUSD = std::make_pair(*low, *high);
  return dryRun;
}

std::string renderDryRunText(const DryRun& d, const AnalyzeOptions& o, const std::string& traceText,
                             const std::string& crashFacts) {
  const auto& info = ai::backendInfo(o.backend);
  std::string text;
  text += "Dry run: nothing was sent to " + std::string(info.displayName) + ".\n";
  text += "Engine: " + std::string(info.displayName) + " (" + o.model + ")\n";
  text += "Crash: " + crashLabel(o, traceText) + "\n";
  text += crashFacts;
  text += "Repository: " + o.repo.value_or("none") + "\n";
  text += "Notes: " + (o.notes.empty() ? std::string("none") : o.notes) + "\n";
  text += "Schema: " + d.prompt.schemaName + "\n";
  if (d.snippets.empty()) {
    text += "Files: none\n";
  } else {
    text += "Files:\n";
    for (const auto& s : d.snippets)
      text += fmt::format("  {} ({}, {} bytes)\n", s.path, fileExtent(s), s.text.size());
  }
  text += "Summary: " + d.prompt.summary + "\n";
  text += "Estimated input tokens: " + tokenLine(d) + "\n";
  text += "Estimated cost: " + costLine(d, o) + "\n";
  text += "\n=== System text ===\n" + d.prompt.system + "\n";
  text += "\n=== User text ===\n" + d.prompt.user + "\n";
  return text;
}

std::string renderDryRunMarkdown(const DryRun& d, const AnalyzeOptions& o, const std::string& traceText) {
  const auto& info = ai::backendInfo(o.backend);
  std::string md = "# Quillora dry run\n\n";
  md += "Nothing was sent to " + std::string(info.displayName) + ".\n\n";
  md += "- Engine: " + std::string(info.displayName) + " (`" + o.model + "`)\n";
  md += "- Crash: " + crashLabel(o, traceText) + "\n";
  md += "- Repository: " + (o.repo ? "`" + *o.repo + "`" : std::string("none")) + "\n";
  md += "- Notes: " + (o.notes.empty() ? std::string("none") : o.notes) + "\n";
  md += "- Schema: `" + d.prompt.schemaName + "`\n";
  md += "- Summary: " + d.prompt.summary + "\n";
  md += "- Estimated input tokens: " + tokenLine(d) + "\n";
  md += "- Estimated cost: " + costLine(d, o) + "\n\n";
  md += "## Files\n\n";
  if (d.snippets.empty()) {
    md += "None.\n\n";
  } else {
    md += "| File | Excerpt | Bytes |\n|---|---|---|\n";
    for (const auto& s : d.snippets)
      md += fmt::format("| `{}` | {} | {} |\n", s.path, fileExtent(s), s.text.size());
    md += "\n";
  }
  // Tildes, because the user text holds backtick fences of its own.
  md += "## System text\n\n~~~~text\n" + d.prompt.system + "\n~~~~\n\n";
  md += "## User text\n\n~~~~text\n" + d.prompt.user + "\n~~~~\n";
  return md;
}

base::Json dryRunJson(const DryRun& d, const AnalyzeOptions& o, const std::string& traceText) {
  base::Json files = base::Json::array();
  for (const auto& s : d.snippets) {
    files.push_back({{"path", s.path},
                     {"startLine", s.startLine},
                     {"endLine", s.endLine},
                     {"isWholeFile", s.isWholeFile},
                     {"bytes", s.text.size()},
                     {"reason", s.reason}});
  }
  return {{"traceBytes", traceText.size()},
          {"notes", o.notes.empty() ? base::Json(nullptr) : base::Json(o.notes)},
          {"repo", o.repo ? base::Json(*o.repo) : base::Json(nullptr)},
          {"sent", false},
          {"system", d.prompt.system},
          {"user", d.prompt.user},
          {"schemaName", d.prompt.schemaName},
          {"schema", d.prompt.schema},
          {"summary", d.prompt.summary},
          {"files", files},
          {"inputBytes", d.inputBytes},
          {"estimatedInputTokens", d.estimatedInputTokens},
          {"estimatedCostUSD", d.costRangeUSD ? base::Json({{"low", base::jsonNumber(d.costRangeUSD->first)},
                                                            {"high", base::jsonNumber(d.costRangeUSD->second)},
                                                            {"lowOutputTokens", kLowOutputTokens},
                                                            {"highOutputTokens", kHighOutputTokens}})
                                              : base::Json(nullptr)}};
}

}  // namespace quillora::cli
