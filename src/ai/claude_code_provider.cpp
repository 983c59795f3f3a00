#include "ai/claude_code_provider.h"

#include "ai/ai_error.h"
#include "ai/analysis_prompt.h"
#include "ai/analysis_schema.h"
#include "ai/analysis_stream.h"
#include "base/json.h"
#include "base/settings.h"
#include "base/strings.h"
#include "base/text.h"
#include "cost/budget.h"
#include "cost/cost_ledger.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace quillora::ai {

namespace {

constexpr const char* kBackendName = "claude-code";
constexpr const char* kAnalysisTools = "Read,Grep,Glob";
constexpr const char* kImplementTools = "Read,Grep,Glob,Edit,Write";
// Linux refuses a single argument of 128 KiB or more (MAX_ARG_STRLEN); a longer prompt goes in on
// standard input, which `claude -p` reads when no prompt argument follows.
constexpr size_t kLongestArgument = 128 * 1024 - 1;
constexpr size_t kShownOutputCharacters = 600;

// The system text in "quillora-system-XXXXXX" of the temporary folder, readable by the user alone
// (mkstemp creates it 0600), removed when the call ends whichever way it ends.
class SystemPromptFile {
public:
  explicit SystemPromptFile(const std::string& text) {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "quillora-system-XXXXXX").string();
    int fd = ::mkstemp(pattern.data());
    if (fd < 0) throw failure(errno);
    m_path = pattern;
    size_t written = 0;
    while (written < text.size()) {
      ssize_t n = ::write(fd, text.data() + written, text.size() - written);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        int error = errno;
        ::close(fd);
        remove();
        throw failure(error);
      }
      written += static_cast<size_t>(n);
    }
    if (::close(fd) != 0) {
      int error = errno;
      remove();
      throw failure(error);
    }
  }
  ~SystemPromptFile() { remove(); }
  SystemPromptFile(const SystemPromptFile&) = delete;
  SystemPromptFile& operator=(const SystemPromptFile&) = delete;

  [[nodiscard]] const std::string& path() const { return m_path; }

private:
  static AIError failure(int error) {
    return AIError::cli(std::string("couldn't write the system prompt to the temporary folder (") +
                        std::strerror(error) + ").");
  }
  void remove() {
    if (m_path.empty()) return;
    std::error_code ignored;
    std::filesystem::remove(m_path, ignored);
    m_path.clear();
  }
  std::string m_path;
};

// How the tool says that nobody is signed in: "Not logged in · Please run /login", the older
// "Invalid API key · Please run /login", an expired login, or a retry loop on a 401.
bool saysNotSignedIn(std::string_view text) {
  for (std::string_view phrase : {"not logged in", "please run /login", "invalid api key",
                                  "oauth token has expired", "authentication_failed"}) {
    if (base::containsIgnoringCaseASCII(text, phrase)) return true;
  }
  return false;
}

std::string lastCharacters(std::string_view text, size_t count) {
  size_t total = base::graphemeCount(text);
  if (total <= count) return std::string(text);
  return std::string(text.substr(base::prefixGraphemes(text, total - count).size()));
}

std::string inputText(const base::Json& input, std::string_view key) {
  return base::readString(input, key).value_or("");
}

// The progress line of one tool the agent calls.
std::string toolLine(const std::string& name, const base::Json& input) {
  if (name == "Edit" || name == "MultiEdit") return "Editing " + inputText(input, "file_path");
  if (name == "Write") return "Writing " + inputText(input, "file_path");
  if (name == "Glob") return "Listing files matching " + inputText(input, "pattern");
  if (name == "Grep") return "Searching for “" + inputText(input, "pattern") + "”";
  if (name == "StructuredOutput") return "Writing up the analysis";
  return "Using " + name;
}

// "Retrying after a temporary API error (attempt 2 of 10)".
std::string retryLine(const base::Json& event) {
  std::string line = "Retrying after a temporary API error (attempt ";
  auto attempt = base::readInteger(event, "attempt");
  line += attempt ? std::to_string(*attempt) : std::string("?");
  if (auto most = base::readInteger(event, "max_retries")) line += " of " + std::to_string(*most);
  return line + ")";
}

// Reads the agent's stream-json output, one event per line, as it arrives.
class EventReader {
public:
  EventReader(const ClaudeCodeProvider::Progress& progress, const ProgressLabels& labels)
      : m_progress(progress), m_answer("Claude Code", headlineOnly(labels), [this](const std::string& l) {
          say(l);
        }) {}

  void stdoutLine(const std::string& line) {
    auto event = base::parseJson(line);
    if (!event || !event->is_object()) {
      // Not an event: a message the tool printed in plain text (a login prompt, a crash).
      note(line);
      return;
    }
    std::string type = base::readString(*event, "type").value_or("");
    if (type == "system") {
      system(*event);
    } else if (type == "assistant") {
      assistant(*event);
    } else if (type == "result") {
      m_result = std::move(*event);
    }
  }

  void stderrLine(const std::string& line) { note(line); }

  [[nodiscard]] const std::optional<base::Json>& result() const { return m_result; }
  [[nodiscard]] const std::string& model() const { return m_model; }
  // What the tool said outside its events: standard error, plain lines, retry reasons.
  [[nodiscard]] const std::string& remarks() const { return m_remarks; }

private:
  static ProgressLabels headlineOnly(const ProgressLabels& labels) {
    ProgressLabels only;
    only.headline = labels.headline;
    return only;
  }

  void say(const std::string& line) {
    if (m_progress) m_progress(line);
  }

  void note(std::string_view line) {
    if (base::trim(line).empty()) return;
    if (!m_remarks.empty()) m_remarks += '\n';
    m_remarks += line;
  }

  void system(const base::Json& event) {
    std::string subtype = base::readString(event, "subtype").value_or("");
    if (subtype == "init") {
      m_model = base::readString(event, "model").value_or("");
      say(m_model.empty() ? std::string("Claude Code started")
                          : "Claude Code started (" + m_model + ")");
    } else if (subtype == "api_retry") {
      say(retryLine(event));
      if (auto error = base::readString(event, "error")) note(*error);
    }
  }

  void assistant(const base::Json& event) {
    auto message = event.find("message");
    if (message == event.end() || !message->is_object()) return;
    auto content = message->find("content");
    if (content == message->end() || !content->is_array()) return;
    for (const auto& item : *content) {
      if (!item.is_object()) continue;
      std::string type = base::readString(item, "type").value_or("");
      if (type == "text") {
        std::string text = base::trimmed(base::readString(item, "text").value_or(""));
        if (!text.empty()) say("Claude: " + text);
      } else if (type == "tool_use") {
        std::string name = base::readString(item, "name").value_or("");
        auto input = item.find("input");
        const base::Json& arguments =
            input != item.end() && input->is_object() ? *input : kNoInput;
        say(toolLine(name, arguments));
        // The answer arrives whole as this tool's input: its title is worth a line of its own.
        if (name == "StructuredOutput") m_answer.receive(base::dumpJsonCompact(arguments));
      }
    }
  }

  static inline const base::Json kNoInput = base::Json::object();
  const ClaudeCodeProvider::Progress& m_progress;
  AnalysisStream m_answer;
  std::optional<base::Json> m_result;
  std::string m_model;
  std::string m_remarks;
};

// The result's own error text: its "result" text, else its "errors", else "unknown error".
std::string resultErrorText(const base::Json& result) {
  std::string text = base::trimmed(base::readString(result, "result").value_or(""));
  if (!text.empty()) return text;
  auto errors = result.find("errors");
  if (errors != result.end() && errors->is_array()) {
    std::vector<std::string> parts;
    for (const auto& error : *errors) {
      if (error.is_string() && !base::trim(error.get<std::string>()).empty())
        parts.push_back(error.get<std::string>());
    }
    if (!parts.empty()) return base::join(parts, "; ");
  }
  return "unknown error";
}

AIError notSignedIn() {
  return AIError::cli("not signed in — run `claude auth login` in Terminal");
}

// The exception the result stands for, in the order the checks are made; nullopt when it holds a
// structured answer.
std::optional<AIError> resultFailure(const base::Json& result, std::string_view remarks) {
  if (base::readString(result, "subtype").value_or("") == "error_max_structured_output_retries")
    return AIError::failed(
        "Claude couldn't produce a complete analysis in the expected format. Try again.");
  if (base::readBool(result, "is_error").value_or(false)) {
    std::string text = resultErrorText(result);
    if (saysNotSignedIn(text) || saysNotSignedIn(remarks)) return notSignedIn();
    return AIError::cli(text);
  }
  auto structured = result.find("structured_output");
  if (structured == result.end() || structured->is_null())
    return AIError::cli(
        "no structured output in the response. Update Claude Code with `claude update`.");
  if (!structured->is_object())
    return AIError::badResponse("structured output is not a JSON object");
  return std::nullopt;
}

// The folders of the pictures that lie outside the repository, each once, in picture order.
std::vector<std::filesystem::path> foldersOutside(const std::vector<PromptImage>& images,
                                                  const std::filesystem::path& repo) {
  std::error_code ignored;
  std::filesystem::path root = std::filesystem::weakly_canonical(repo, ignored);
  std::vector<std::filesystem::path> folders;
  for (const auto& image : images) {
    std::filesystem::path folder =
        std::filesystem::weakly_canonical(imagePath(image), ignored).parent_path();
    auto [rootEnd, folderAt] = std::mismatch(root.begin(), root.end(), folder.begin(), folder.end());
    bool inside = rootEnd == root.end();
    if (!inside && std::find(folders.begin(), folders.end(), folder) == folders.end())
      folders.push_back(folder);
  }
  return folders;
}

std::string formatBudget(double dollars) {
  char text[64];
  std::snprintf(text, sizeof text, "%.2f", dollars);
  return text;
}

} // namespace

// One run of the agent.
struct ClaudeCodeProvider::Call {
  std::string user;
  std::string_view schema;
  std::string system;
  std::filesystem::path repo;
  const char* tools = kAnalysisTools;
  const char* permissionMode = kAnalysisPermissionMode;
  base::Seconds timeLimit{0};
  std::vector<std::filesystem::path> addDirs;
  ProgressLabels labels;
  // Decodes the structured output; throws AIError when it can't.
  std::function<void(const base::Json&)> accept;
};

ClaudeCodeProvider::ClaudeCodeProvider(std::string claudePath_, std::string model_,
                                       std::optional<double> maxBudgetUSD_, Progress progress_,
                                       std::shared_ptr<cost::UsageMeter> usageMeter_)
    : claudePath(std::move(claudePath_)), model(std::move(model_)), maxBudgetUSD(maxBudgetUSD_),
      progress(std::move(progress_)), usageMeter(std::move(usageMeter_)) {}

ClaudeCodeProvider ClaudeCodeProvider::fromSettings(std::string model, Progress progress,
                                                    std::shared_ptr<cost::UsageMeter> usageMeter) {
  auto& settings = base::Settings::shared();
  std::string path = base::trimmed(settings.text("claudePath").value_or(""));
  if (model.empty()) model = modelFor(AIBackend::claudeCode);
  std::optional<double> cap = settings.number("claudeCode.maxBudgetUSD");
  if (cap && *cap <= 0) cap.reset();
  return {std::move(path), std::move(model), cap, std::move(progress), std::move(usageMeter)};
}

std::filesystem::path ClaudeCodeProvider::findClaude() const {
  // A configured path is the user's choice and is used as it stands; the runner refuses it when
  // it isn't an executable file.
  auto found = base::ProcessRunner::resolve(claudePath.empty() ? std::string("claude") : claudePath);
  if (!found) throw AIError::cli("Not found. Install Claude Code, or set the full path to `claude`.");
  return *found;
}

FixAnalysis ClaudeCodeProvider::analyze(const StructuredPrompt& prompt,
                                        const std::vector<PromptImage>& images) {
  if (!prompt.repo || base::trim(*prompt.repo).empty()) throw AIError::missingRepo();
  FixAnalysis analysis;
  Call call;
  call.user = prompt.user;
  call.schema = prompt.schema;
  call.system = prompt.system;
  call.repo = *prompt.repo;
  call.tools = kAnalysisTools;
  call.permissionMode = kAnalysisPermissionMode;
  call.timeLimit = analysisTimeLimit;
  call.addDirs = foldersOutside(images, call.repo);
  call.labels = prompt.labels;
  call.accept = [&analysis](const base::Json& answer) {
    analysis = decodeFixAnalysis(base::dumpJsonCompact(answer));
  };
  run(call);
  return analysis;
}

FixImplementation ClaudeCodeProvider::implement(const std::string& userText,
                                                const std::filesystem::path& repo,
                                                const std::string& systemText) {
  if (repo.empty()) throw AIError::missingRepo();
  FixImplementation implementation;
  Call call;
  call.user = userText;
  call.schema = fixImplementationSchema();
  call.system = systemText;
  call.repo = repo;
  call.tools = kImplementTools;
  call.permissionMode = kImplementPermissionMode;
  call.timeLimit = implementTimeLimit;
  call.accept = [&implementation](const base::Json& answer) {
    implementation = decodeFixImplementation(base::dumpJsonCompact(answer));
  };
  run(call);
  return implementation;
}

std::function<FixImplementation(const std::filesystem::path&, const std::string&)>
ClaudeCodeProvider::implementStep(FixAnalysis analysis, std::optional<crash::CrashReport> report,
                                  std::string notes, std::string systemText) {
  return [this, analysis = std::move(analysis), report = std::move(report),
          notes = std::move(notes), systemText = std::move(systemText)](
             const std::filesystem::path& repository, const std::string&) {
    std::string userText = buildImplementPrompt(analysis, report ? &*report : nullptr, notes);
    return implement(userText, repository, systemText);
  };
}

void ClaudeCodeProvider::run(const Call& call) {
  std::filesystem::path executable = findClaude();
  if (recording.ledger) {
    if (auto notice = cost::checkBudgetBeforeCall(*recording.ledger); notice && warning)
      warning(*notice);
  }

  SystemPromptFile systemFile(call.system);
  bool viaStdin = call.user.size() > kLongestArgument;
  std::vector<std::string> arguments = {"--output-format", "stream-json", "--verbose", "-p"};
  if (!viaStdin) arguments.push_back(call.user);
  arguments.insert(arguments.end(), {"--json-schema", std::string(call.schema),
                                     "--append-system-prompt-file", systemFile.path(), "--tools",
                                     call.tools, "--no-session-persistence", "--model", model,
                                     "--permission-mode", call.permissionMode});
  if (maxBudgetUSD) arguments.insert(arguments.end(), {"--max-budget-usd", formatBudget(*maxBudgetUSD)});
  for (const auto& folder : call.addDirs)
    arguments.insert(arguments.end(), {"--add-dir", folder.string()});

  EventReader reader(progress, call.labels);
  base::ProcessRequest request;
  request.executable = executable.string();
  request.arguments = std::move(arguments);
  request.workingDirectory = call.repo;
  if (viaStdin) request.standardInput = call.user;
  request.timeLimit = call.timeLimit;
  request.stallLimit = stallLimit;
  request.label = "claude";
  request.onStdoutLine = [&reader](const std::string& line) { reader.stdoutLine(line); };
  request.onStderrLine = [&reader](const std::string& line) { reader.stderrLine(line); };

  auto started = std::chrono::steady_clock::now();
  cost::UsageMeter callMeter;
  // Writes the call to the meters and the ledger; a call that failed before its result still
  // counts, with the tokens it reported (none).
  auto record = [&](bool failed) {
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    if (reader.result()) {
      cost::UsageReport report = cost::UsageReport::fromClaudeCode(*reader.result());
      callMeter.record(report);
      if (usageMeter) {
        usageMeter->record(report);
        usageMeter->nextResponse();
      }
      if (auto ms = base::readDouble(*reader.result(), "duration_ms")) seconds = *ms / 1000.0;
    }
    std::string usedModel = reader.model().empty() ? model : reader.model();
    RecordedCall recorded;
    recorded.failed = failed;
    if (auto usage = callMeter.usage(kBackendName, usedModel, seconds)) {
      recorded.usage = *usage;
    } else {
      recorded.usage.backend = kBackendName;
      recorded.usage.model = usedModel;
      recorded.usage.duration = seconds;
    }
    m_lastCall = recorded;
    // The tool reports its own cost, so the price table only matters for a call without one.
    if (recording.ledger) {
      m_lastCall->entry = recording.ledger->record(recorded.usage, recording.kind,
                                                   recording.recordID, failed,
                                                   recording.prices.value_or(cost::PriceTable{}));
    }
  };

  base::ShellResult outcome;
  try {
    outcome = base::ProcessRunner(timing).run(request);
  } catch (const base::ShellTimeout& timeout) {
    record(true);
    throw AIError::cli(timeout.what());
  } catch (const base::ShellLaunchError& launch) {
    throw AIError::cli(launch.what());
  } catch (const base::ShellError&) {
    // The executable vanished between finding and starting it.
    throw AIError::cli("Not found. Install Claude Code, or set the full path to `claude`.");
  } catch (...) {
    record(true);
    throw;
  }

  if (!reader.result()) {
    record(true);
    if (saysNotSignedIn(reader.remarks())) throw notSignedIn();
    std::string message = "`claude` ended without a result (exit " + std::to_string(outcome.status) + ")";
    std::string_view remarks = base::trim(reader.remarks());
    if (!remarks.empty()) message += ":\n" + lastCharacters(remarks, kShownOutputCharacters);
    throw AIError::cli(message);
  }

  const base::Json& result = *reader.result();
  std::optional<AIError> failure = resultFailure(result, reader.remarks());
  if (!failure) {
    try {
      call.accept(result.at("structured_output"));
    } catch (const AIError& error) {
      failure = error;
    }
  }
  record(failure.has_value());
  if (failure) throw *failure;
}

} // namespace quillora::ai
