#include <gtest/gtest.h>

#include "ai/analysis_prompt.h"
#include "ai/system_text.h"
#include "support/test_support.h"

namespace quillora::ai {
namespace {

crash::CrashReport unityReport() {
  crash::CrashReport report;
  report.platform = crash::CrashPlatform::unity;
  report.exceptionType = "NullReferenceException";
  report.exceptionMessage = "Object reference not set to an instance of an object";
  crash::ThreadTrace thread;
  thread.name = "main";
  thread.isCrashed = true;
  crash::StackFrame frame;
  frame.module = "Assembly-CSharp";
  frame.symbol = "Game.Player.PlayerController.Update ()";
  frame.file = "Assets/Scripts/Player/PlayerController.cs";
  frame.line = 42;
  frame.isInApp = true;
  thread.frames.push_back(frame);
  report.threads.push_back(thread);
  report.rawText =
      "NullReferenceException: Object reference not set to an instance of an object\n"
      "Game.Player.PlayerController.Update () (at Assets/Scripts/Player/PlayerController.cs:42)";
  return report;
}

CodeSnippet updateSnippet() {
  return {"Assets/Scripts/Player/PlayerController.cs", 41, 43,
          "    void Update() {\n        rb.velocity = input;\n    }",
          "#0 Game.Player.PlayerController.Update () (Assets/Scripts/Player/PlayerController.cs:42)",
          false};
}

const std::string kCrashPieces = R"(<crash_summary>
Platform: Unity (IL2CPP / Mono)
Exception: NullReferenceException
Message: Object reference not set to an instance of an object
Blamed frame: Game.Player.PlayerController.Update () (Assets/Scripts/Player/PlayerController.cs:42)
Crashed thread: main
0 ★ Assembly-CSharp  Game.Player.PlayerController.Update () (Assets/Scripts/Player/PlayerController.cs:42)
</crash_summary>

<stack_trace>
NullReferenceException: Object reference not set to an instance of an object
Game.Player.PlayerController.Update () (at Assets/Scripts/Player/PlayerController.cs:42)
</stack_trace>

)";

const std::string kApiClosing =
    "Fill in every field of the JSON schema. Paths in `patch` and `affectedFiles` are the "
    "repo-relative paths shown above.";

// Notes of nothing but white space are left out; the agent is told to find the code itself.
TEST(AnalysisPrompt, UserTextForTheAgentWithoutSnippetsOrNotes) {
  AnalysisRequest request{unityReport(), std::nullopt, " \n\t\n ", std::nullopt, {}, std::nullopt};
  EXPECT_EQ(buildUserText(request, true),
            "Analyze this production crash and propose a fix.\n\n" + kCrashPieces +
                "No source excerpts were pre-collected.\n\nYou are running in the root of the "
                "game's repository. Before answering, use Read, Grep and Glob to open\nthe code "
                "behind the in-app frames (and their callers if the bad value originates there). "
                "Do NOT modify\nany files in this step. Then fill in every field of the JSON "
                "schema. The `patch` must be a unified diff\nrelative to the repository root that "
                "`git apply` accepts.");
}

BugTicket jiraTicket(const std::vector<PromptImage>& images) {
  return {TicketSource::jira, "DUN-142", "Game freezes after respawn",
          "Respawn in the crypt, then move.\n", {{"Ana", "Also on Pixel 9."}}, images};
}

TEST(AnalysisPrompt, UserTextOfATicketWithoutTraceOrPictures) {
  AnalysisRequest request{crash::CrashReport{}, std::nullopt, "", std::nullopt, {}, jiraTicket({})};
  EXPECT_EQ(buildUserText(request, false), R"(Analyze this bug report from Jira and propose a fix. There is no stack trace: work from the description, comments, logs and pictures, and find the code responsible yourself.

<bug_ticket>
DUN-142: Game freezes after respawn

Description:
Respawn in the crypt, then move.

Comments:
- Ana: Also on Pixel 9.
</bug_ticket>

<source_code>
No source code was found for the classes and files the ticket mentions. Base the analysis on the ticket alone and leave `patch` empty.
</source_code>

)" + kApiClosing);
  EXPECT_EQ(buildUserText(request, true).substr(buildUserText(request, true).find("</bug_ticket>")),
            "</bug_ticket>\n\nNo source excerpts were pre-collected.\n\nYou are running in the root "
            "of the game's repository. Before answering, use Read, Grep and Glob to open\nthe code "
            "behind the behaviour described: search for the screens, features, classes, log "
            "messages and error texts the ticket mentions. Do NOT modify\nany files in this step. "
            "Then fill in every field of the JSON schema. The `patch` must be a unified diff\n"
            "relative to the repository root that `git apply` accepts.");
}

TEST(AnalysisPrompt, UserTextOfATicketWithTraceAndPictures) {
  BugTicket ticket = jiraTicket({{"file:///tmp/shots/crash%20dialog.png", "The error dialog"},
                                 {"/tmp/shots/frame-2.jpg", "Frame at 0:02"}});
  ticket.source = TicketSource::trello;
  ticket.comments.clear();
  ticket.description.clear();
  AnalysisRequest request{unityReport(), std::nullopt, "", std::nullopt, {}, ticket};
  std::string head = "Analyze this bug report from Trello (it includes a stack trace) and propose a "
                     "fix.\n\n<bug_ticket>\nDUN-142: Game freezes after respawn\n</bug_ticket>\n\n";
  std::string lookAt = "Look at them for what the player saw (UI state, error dialogs, visual "
                       "glitches, timing).\n</pictures>\n\n";
  EXPECT_EQ(buildUserText(request, false),
            head + "<pictures>\nThe 2 images attached to this message are, in order:\n1. The error "
                   "dialog\n2. Frame at 0:02\n" + lookAt + kCrashPieces +
                "<source_code>\nNo source code was found for the in-app frames. Base the analysis "
                "on the trace alone and leave `patch` empty.\n</source_code>\n\n" + kApiClosing);
  std::string readable = buildUserText(request, true);
  EXPECT_EQ(readable.substr(0, readable.find("<crash_summary>")),
            head + "<pictures>\nThe tester's screenshots and still frames from their screen "
                   "recording are image files. Open each one with the Read tool before "
                   "answering:\n- /tmp/shots/crash dialog.png — The error dialog\n- "
                   "/tmp/shots/frame-2.jpg — Frame at 0:02\n" + lookAt);
}

TEST(AnalysisPrompt, TracesAreCutAfter30000Characters) {
  struct Case {
    std::string raw;
    std::string sent;
  };
  std::string thirtyThousand(30'000, 'x');
  std::string accents;  // 30,001 characters of two bytes each ("e" + a combining accent is one)
  for (int i = 0; i < 30'001; ++i) accents += (i % 2 ? "\xC3\xA9" : "e\xCC\x81");
  std::vector<Case> cases = {
      {thirtyThousand, thirtyThousand},
      {thirtyThousand + "y", thirtyThousand + "\n…(trace truncated)"},
      {accents, accents.substr(0, accents.size() - 3) + "\n…(trace truncated)"},
  };
  for (const auto& c : cases) {
    crash::CrashReport report;
    report.rawText = c.raw;
    EXPECT_EQ(stackTraceElement(report), "<stack_trace>\n" + c.sent + "\n</stack_trace>\n\n");
  }
}

TEST(AnalysisPrompt, SummaryLineCountsFilesKilobytesAndImages) {
  testing::TempDir dir;
  auto image = dir.write("shot.png", std::string(3000, 'p'));
  AnalysisRequest request{unityReport(), std::nullopt, "", std::nullopt,
                          {updateSnippet(), updateSnippet()}, std::nullopt};
  EXPECT_EQ(requestSummary(request, std::string(100, 'u'), AIBackend::claudeAPI),
            "Sent the trace, notes and 2 source file(s) (1 KB) to Claude API");
  EXPECT_EQ(requestSummary(request, std::string(5 * 1024 + 1023, 'u'), AIBackend::gemini),
            "Sent the trace, notes and 2 source file(s) (5 KB) to Gemini API");
  request.ticket = jiraTicket({{"file://" + image.string(), "Shot"}, {"/missing.png", "Gone"}});
  EXPECT_EQ(requestSummary(request, "u", AIBackend::openAI),
            "Sent the ticket, trace and 2 source file(s) (1 KB), 2 image(s) (2 KB) to ChatGPT (OpenAI API)");
  request.report = crash::CrashReport{};
  request.snippets.clear();
  request.ticket->images.clear();
  EXPECT_EQ(requestSummary(request, "u", AIBackend::claudeCode),
            "Sent the ticket and 0 source file(s) (1 KB) to Claude Code CLI");
}

TEST(AnalysisPrompt, PromptCarriesSystemLabelsAndRepo) {
  AnalysisRequest request{unityReport(), std::filesystem::path("/work/game"), "", std::string("SKILL"),
                          {}, std::nullopt};
  StructuredPrompt api = buildAnalysisPrompt(request, AIBackend::claudeAPI, false, AnalysisLanguage::spanish);
  EXPECT_EQ(api.system, "SKILL\n\n" + std::string(outputContract()) +
                            languageInstruction(AnalysisLanguage::spanish));
  EXPECT_EQ(api.labels.writing, "Claude API is writing the analysis");
  EXPECT_EQ(api.repo, "/work/game");
  StructuredPrompt agent = buildAnalysisPrompt(request, AIBackend::claudeCode, true, AnalysisLanguage::english);
  EXPECT_EQ(agent.labels.writing, "Writing up the analysis");
}

TEST(AnalysisPrompt, ImplementPromptListsTheAgreedFix) {
  FixAnalysis analysis;
  analysis.title = "Guard the rigidbody";
  analysis.rootCause = "`rb` is null.";
  analysis.fixSummary = "Fetch it in `Awake()`.";
  analysis.affectedFiles = {"A.cs", "B.cs"};
  analysis.codeChanges = {{"A.cs", 12, "csharp", "Fetch it.", "void Awake() {}", "void Awake() { rb = X(); }"},
                          {"B.cs", 0, "csharp", "Illustrative guard.", "", "if (rb == null) return;"}};
  analysis.patch = "diff --git a/A.cs b/A.cs";
  crash::CrashReport report = unityReport();
  std::string text = buildImplementPrompt(analysis, &report, "  Keep it small. ");
  EXPECT_EQ(text.substr(0, text.find("<crash_summary>")),
            "Implement this fix in the repository. You are on a fresh branch created for it.\n\n");
  EXPECT_EQ(text.substr(text.find("</crash_summary>")), R"(</crash_summary>

<agreed_fix>
Title: Guard the rigidbody

Root cause:
`rb` is null.

Fix:
Fetch it in `Awake()`.

Files: A.cs, B.cs

Change in A.cs near line 12: Fetch it.
Replace:
void Awake() {}
With:
void Awake() { rb = X(); }

Change in B.cs: Illustrative guard.
With:
if (rb == null) return;

Proposed patch (use as guidance; adapt it if the code differs):
diff --git a/A.cs b/A.cs
</agreed_fix>

<developer_notes>
Keep it small.
</developer_notes>

Rules:
- Edit files with the Edit/Write tools. Keep the change minimal and in the existing code style.
- Do not run git commands, do not commit, and do not touch files unrelated to the fix.
- When done, report a short summary and the list of files you changed.)");
  FixAnalysis bare;
  bare.title = "T";
  EXPECT_EQ(buildImplementPrompt(bare, nullptr, ""),
            "Implement this fix in the repository. You are on a fresh branch created for it.\n\n"
            "<agreed_fix>\nTitle: T\n\nRoot cause:\n\n\nFix:\n\n</agreed_fix>\n\nRules:\n- Edit "
            "files with the Edit/Write tools. Keep the change minimal and in the existing code "
            "style.\n- Do not run git commands, do not commit, and do not touch files unrelated to "
            "the fix.\n- When done, report a short summary and the list of files you changed.");
}

}  // namespace
}  // namespace quillora::ai
