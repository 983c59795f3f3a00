#include "ai/analysis_prompt.h"

#include <system_error>

#include <fmt/format.h>

#include "ai/analysis_schema.h"
#include "ai/analysis_stream.h"
#include "ai/skill.h"
#include "ai/system_text.h"
#include "base/strings.h"
#include "base/text.h"

namespace quillora::ai {

namespace {

bool hasTrace(const crash::CrashReport& report) { return !base::trim(report.rawText).empty(); }

std::string notesElement(const std::string& notes) {
  std::string_view trimmedNotes = base::trim(notes);
  if (trimmedNotes.empty()) return "";
  return "<developer_notes>\n" + std::string(trimmedNotes) + "\n</developer_notes>\n\n";
}

std::string openingLine(const AnalysisRequest& request) {
  if (!request.ticket) return "Analyze this production crash and propose a fix.\n\n";
  std::string source(ticketSourceName(request.ticket->source));
  if (request.hasTrace())
    return "Analyze this bug report from " + source + " (it includes a stack trace) and propose a fix.\n\n";
  return "Analyze this bug report from " + source +
         " and propose a fix. There is no stack trace: work from the description, comments, logs "
         "and pictures, and find the code responsible yourself.\n\n";
}

std::string picturesElement(const BugTicket& ticket, bool filesReadable) {
  if (ticket.images.empty()) return "";
  std::string text = "<pictures>\n";
  if (filesReadable) {
    text += "The tester's screenshots and still frames from their screen recording are image "
            "files. Open each one with the Read tool before answering:\n";
    for (const auto& image : ticket.images)
      text += "- " + imagePath(image).string() + " — " + image.caption + "\n";
  } else {
    text += fmt::format("The {} images attached to this message are, in order:\n", ticket.images.size());
    for (size_t i = 0; i < ticket.images.size(); ++i)
      text += fmt::format("{}. {}\n", i + 1, ticket.images[i].caption);
  }
  text += "Look at them for what the player saw (UI state, error dialogs, visual glitches, "
          "timing).\n</pictures>\n\n";
  return text;
}

std::string sourceCodeElement(const AnalysisRequest& request, bool filesReadable) {
  if (!request.snippets.empty()) {
    std::string text = "<source_code>\n";
    for (const auto& snippet : request.snippets) text += renderSnippet(snippet) + "\n";
    return text + "</source_code>\n\n";
  }
  if (filesReadable) return "No source excerpts were pre-collected.\n\n";
  bool trace = request.hasTrace();
  return "<source_code>\nNo source code was found for the " +
         std::string(trace ? "in-app frames" : "classes and files the ticket mentions") +
         ". Base the analysis on the " + std::string(trace ? "trace" : "ticket") +
         " alone and leave `patch` empty.\n</source_code>\n\n";
}

std::string closingInstruction(const AnalysisRequest& request, bool filesReadable) {
  if (!filesReadable) {
    return "Fill in every field of the JSON schema. Paths in `patch` and `affectedFiles` are the "
           "repo-relative paths shown above.";
  }
  return "You are running in the root of the game's repository. Before answering, use Read, Grep "
         "and Glob to open\n" +
         std::string(request.hasTrace()
                         ? "the code behind the in-app frames (and their callers if the bad value "
                           "originates there)"
                         : "the code behind the behaviour described: search for the screens, "
                           "features, classes, log messages and error texts the ticket mentions") +
         ". Do NOT modify\nany files in this step. Then fill in every field of the JSON schema. "
         "The `patch` must be a unified diff\nrelative to the repository root that `git apply` "
         "accepts.";
}

long long kilobytes(unsigned long long bytes) { return std::max(1LL, static_cast<long long>(bytes / 1024)); }

}  // namespace

std::string crashSummaryElement(const crash::CrashReport& report) {
  std::string summary = report.summaryText();
  if (summary.empty() || summary.back() != '\n') summary += '\n';
  return "<crash_summary>\n" + summary + "</crash_summary>\n\n";
}

std::string stackTraceElement(const crash::CrashReport& report) {
  std::string_view raw = report.rawText;
  std::string trace;
  if (base::graphemeCount(raw) > kTraceCharacterLimit) {
    trace = std::string(base::prefixGraphemes(raw, kTraceCharacterLimit)) + "\n…(trace truncated)";
  } else {
    trace = std::string(raw);
  }
  return "<stack_trace>\n" + trace + "\n</stack_trace>\n\n";
}

std::string buildUserText(const AnalysisRequest& request, bool filesReadable) {
  std::string text = openingLine(request);
  if (request.ticket) {
    text += "<bug_ticket>\n" + renderTicketText(*request.ticket) + "</bug_ticket>\n\n";
    text += picturesElement(*request.ticket, filesReadable);
  }
  if (request.hasTrace()) text += crashSummaryElement(request.report) + stackTraceElement(request.report);
  text += notesElement(request.notes);
  text += sourceCodeElement(request, filesReadable);
  text += closingInstruction(request, filesReadable);
  return text;
}

std::string requestSummary(const AnalysisRequest& request, const std::string& userText,
                           AIBackend engine) {
  std::string subject = !request.ticket ? "the trace, notes"
                        : request.hasTrace() ? "the ticket, trace"
                                             : "the ticket";
  std::string images;
  if (request.ticket && !request.ticket->images.empty()) {
    unsigned long long bytes = 0;
    for (const auto& image : request.ticket->images) {
      std::error_code error;
      auto size = std::filesystem::file_size(imagePath(image), error);
      if (!error) bytes += size;
    }
    images = fmt::format(", {} image(s) ({} KB)", request.ticket->images.size(), kilobytes(bytes));
  }
  return fmt::format("Sent {} and {} source file(s) ({} KB){} to {}", subject, request.snippets.size(),
                     kilobytes(userText.size()), images, backendInfo(engine).displayName);
}

StructuredPrompt buildAnalysisPrompt(const AnalysisRequest& request, AIBackend engine,
                                     bool filesReadable, AnalysisLanguage language) {
  StructuredPrompt prompt;
  std::string skill = request.skill ? *request.skill : defaultSkill(request.report.platform);
  prompt.system = buildSystemText(skill, language);
  prompt.user = buildUserText(request, filesReadable);
  prompt.schema = std::string(fixAnalysisSchema());
  prompt.schemaName = std::string(kFixAnalysisSchemaName);
  prompt.summary = requestSummary(request, prompt.user, engine);
  const auto& info = backendInfo(engine);
  prompt.labels = analysisProgressLabels(engine == AIBackend::claudeCode
                                             ? std::string("Writing up the analysis")
                                             : std::string(info.displayName) + " is writing the analysis");
  if (request.repo) prompt.repo = request.repo->string();
  return prompt;
}

StructuredPrompt buildAnalysisPrompt(const AnalysisRequest& request, AIBackend engine,
                                     bool filesReadable) {
  return buildAnalysisPrompt(request, engine, filesReadable, configuredAnalysisLanguage());
}

std::string buildImplementPrompt(const FixAnalysis& analysis, const crash::CrashReport* report,
                                 const std::string& notes) {
  std::string text = "Implement this fix in the repository. You are on a fresh branch created for it.\n\n";
  if (report && hasTrace(*report)) text += crashSummaryElement(*report);
  text += "<agreed_fix>\nTitle: " + analysis.title + "\n\nRoot cause:\n" + analysis.rootCause +
          "\n\nFix:\n" + analysis.fixSummary + "\n";
  if (!analysis.affectedFiles.empty()) text += "\nFiles: " + base::join(analysis.affectedFiles, ", ") + "\n";
  for (const auto& change : analysis.codeChanges) {
    text += "\nChange in " + change.file;
    if (change.line >= 1) text += " near line " + std::to_string(change.line);
    text += ": " + change.explanation + "\n";
    if (!change.before.empty()) text += "Replace:\n" + change.before + "\n";
    text += "With:\n" + change.after + "\n";
  }
  if (!analysis.patch.empty())
    text += "\nProposed patch (use as guidance; adapt it if the code differs):\n" + analysis.patch + "\n";
  text += "</agreed_fix>\n\n";
  text += notesElement(notes);
  text += "Rules:\n- Edit files with the Edit/Write tools. Keep the change minimal and in the "
          "existing code style.\n- Do not run git commands, do not commit, and do not touch files "
          "unrelated to the fix.\n- When done, report a short summary and the list of files you "
          "changed.";
  return text;
}

}  // namespace quillora::ai
