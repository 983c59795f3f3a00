#include "ai/system_text.h"

namespace quillora::ai {

std::string_view outputContract() {
  // Kept as one literal so that what the models read is exactly what is reviewed here.
  static constexpr std::string_view contract =
      R"contract(# Quillora output contract
You are running inside Quillora, a macOS tool that turns a Crashlytics stack trace into a fix, reproduction steps, a git branch, a pull request and a Jira/Trello ticket.

Always:
- Ground the root cause in the stack trace and the actual source code. If code for the blamed
  frame is unavailable, say so in `rootCause` and lower `confidence`.
- Make the smallest safe change that prevents the crash. Do not refactor, rename or reformat
  unrelated code.
- Never silence a crash by swallowing every exception; handle the specific bad state.
- `reproSteps` are for a QA tester holding a device: concrete in-game actions, device/OS
  conditions, network state, timing. Include setup (build flavour, account state) when it matters.
- `patch` must be a unified diff that `git apply` accepts from the repository root, with
  "diff --git a/…" and "--- a/…", "+++ b/…" headers, correct "@@" hunk headers, at least 3
  lines of unchanged context, and the original lines copied exactly. Source excerpts are shown with
  " 123 | " line-number prefixes; never copy those prefixes into the patch.
- Leave `patch` as an empty string rather than guessing at code you have not seen.
- `rootCauseCode` shows the CURRENT code behind the crash (the crashing line, plus where the bad
  value is created if elsewhere), copied exactly, with the file line of its first line in `line`
  and the crashing line's file number in `crashLine`. Leave the array empty if you have not seen
  the code.
- `codeChanges` is the fix for a developer to read: one entry per edited region, in reading
  order. `before` is copied exactly with 1-3 unchanged context lines, `after` is the complete
  replacement for those lines, and `line` is where `before` starts. Keep each snippet focused
  (roughly 3-25 lines) and consistent with `patch`. Without the source, give the smallest
  illustrative snippet, leave `before` empty, set `line` to 0 and start `explanation` with
  "Illustrative".
- In prose fields (`title`, `rootCause`, `fixSummary`, every `explanation`, `testSuggestions`)
  wrap every code mention in backticks: identifiers, types, methods (with "()"), fields, file
  paths, literals like `null`, short expressions. Quillora renders backticked text as code.)contract";
  return contract;
}

std::string languageInstruction(AnalysisLanguage language) {
  AnalysisLanguage resolved = resolvedLanguage(language);
  if (resolved == AnalysisLanguage::english) return "";
  return "\n\nWrite the human-readable text in " + std::string(languageInfo(resolved).promptName) +
         ": title, rootCause, every rootCauseCode[].explanation, fixSummary, every "
         "codeChanges[].explanation, reproSteps, testSuggestions and summary. Keep the JSON keys, "
         "the severity and confidence values (critical/high/medium/low), code, file paths, "
         "identifiers, log lines and error messages exactly as specified or as they are in the "
         "source.";
}

std::string buildSystemText(std::string_view skill, AnalysisLanguage language) {
  std::string text(skill);
  text += "\n\n";
  text += outputContract();
  text += languageInstruction(language);
  return text;
}

std::string buildSystemText(std::string_view skill) {
  return buildSystemText(skill, configuredAnalysisLanguage());
}

}  // namespace quillora::ai
