#include "cli/analyze_options.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/cancellation.h"
#include "base/files.h"
#include "base/settings.h"
#include "base/strings.h"

namespace quillora::cli {

namespace {

// Far larger than any real crash log; a bigger input is a mistake (a core dump, a video).
constexpr size_t kMaxTraceBytes = 64u * 1024 * 1024;

std::optional<VerificationThreshold> parseThreshold(const std::string& value) {
  if (value == "verified") return VerificationThreshold::verified;
  if (value == "tests-pass" || value == "testspass" || value == "tests")
    return VerificationThreshold::testsPass;
  if (value == "builds" || value == "build" || value == "buildonly" || value == "build-only")
    return VerificationThreshold::buildOnly;
  return std::nullopt;
}

bool matchesApp(const base::Json& app, const std::string& query) {
  for (const char* key : {"appID", "name", "remoteID", "bundleID"}) {
    auto value = base::readString(app, key);
    if (value && !value->empty() && *value == query) return true;
  }
  return false;
}

base::Json findConfiguredApp(const std::string& query) {
  const base::Json* apps = base::Settings::shared().value("apps");
  if (!apps || !apps->is_array() || apps->empty()) {
    throw CLIUsageError(
        "No crash-report apps are configured. Add them under \"apps\" in the --config file (or in "
        "the app's Settings → Crash Reports).");
  }
  std::vector<std::string> names;
  for (const auto& app : *apps) {
    if (matchesApp(app, query)) return app;
    auto name = base::readString(app, "name");
    if (!name || name->empty()) name = base::readString(app, "appID");
    if (name && !name->empty()) names.push_back(*name);
  }
  throw CLIUsageError("No app '" + query + "' in the configuration. Known apps: " +
                      base::join(names, ", "));
}

std::string readAll(int fd) {
  std::string text;
  char buffer[65536];
  while (true) {
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) {
        base::throwIfCancelled();
        continue;
      }
      throw Error(std::string("Couldn't read stdin: ") + std::strerror(errno));
    }
    if (n == 0) break;
    text.append(buffer, static_cast<size_t>(n));
    if (text.size() > kMaxTraceBytes) break;
  }
  return text;
}

void checkSize(const std::string& text, const std::string& what) {
  if (text.size() > kMaxTraceBytes) {
    throw CLIUsageError(what + " is larger than 64 MB, which is too big for a crash trace. Give the "
                               "crash log itself, or cut it to the crashed part.");
  }
}

}  // namespace

std::string readTraceText(const std::string& path) {
  if (path == "-") {
    std::string text = readAll(STDIN_FILENO);
    if (base::trim(text).empty()) throw CLIUsageError("Nothing came in on stdin.");
    checkSize(text, "The crash on stdin");
    return text;
  }
  std::error_code ec;
  if (!std::filesystem::exists(path, ec)) throw CLIUsageError("No such file: " + path);
  if (std::filesystem::is_directory(path, ec)) {
    throw CLIUsageError(path + " is a folder; --trace needs a crash file.");
  }
  auto size = std::filesystem::file_size(path, ec);
  if (!ec && size > kMaxTraceBytes) checkSize(std::string(kMaxTraceBytes + 1, ' '), path);
  std::string reason;
  auto text = base::readFile(path, &reason);
  if (!text) throw Error("Can't read " + path + ": " + reason);
  if (base::trim(*text).empty()) throw CLIUsageError(path + " is empty.");
  return *text;
}

AnalyzeOptions validateAnalyzeOptions(const ParsedArguments& args, const std::string& format) {
  AnalyzeOptions o;
  o.format = format;
  o.tracePath = args.value("trace");
  o.appQuery = args.value("app");
  o.issueID = args.value("issue");
  o.repo = args.value("repo");
  o.model = args.value("model").value_or("");
  o.symbolicate = args.has("symbolicate");
  o.symbols = args.all("symbols");
  o.saveHistory = args.has("save-history");
  o.noDuplicates = args.has("no-duplicates");
  o.branch = args.has("branch");
  o.base = args.value("base");
  o.branchName = args.value("branch-name");
  o.verify = args.has("verify");
  o.failOnUnverified = args.has("fail-on-unverified");
  o.dryRun = args.has("dry-run");
  o.out = args.value("out");
  o.markdownOut = args.value("markdown-out");

  bool hasTrace = o.tracePath.has_value();
  bool hasApp = o.appQuery.has_value();
  bool hasIssue = o.issueID.has_value();
  if (!hasTrace && !hasApp && !hasIssue) {
    throw CLIUsageError(
        "Give the crash: --trace <file> (or --trace - for stdin), or --app <appID> --issue <issueID>.");
  }
  if (!hasTrace && hasApp != hasIssue) throw CLIUsageError("--app and --issue go together.");
  if (hasTrace && (hasApp || hasIssue)) {
    throw CLIUsageError("Give either --trace or --app with --issue, not both.");
  }
  if (o.verify && !o.branch) throw CLIUsageError("--verify needs --branch (it verifies the fix branch).");
  if (o.failOnUnverified && !o.verify) throw CLIUsageError("--fail-on-unverified needs --verify.");
  if ((o.base || o.branchName) && !o.branch) {
    throw CLIUsageError("--base and --branch-name need --branch.");
  }
  if (auto threshold = args.value("min-verification")) {
    if (!o.failOnUnverified) {
      throw CLIUsageError("--min-verification goes with --fail-on-unverified.");
    }
    auto parsed = parseThreshold(*threshold);
    if (!parsed) throw CLIUsageError("--min-verification must be verified, tests-pass or builds.");
    o.minVerification = *parsed;
  }
  if (auto days = wholeNumberOption(args, "days", 1, 90)) o.days = static_cast<int>(*days);
  if (auto engine = args.value("engine")) {
    auto backend = ai::backendFromName(*engine);
    if (!backend) throw CLIUsageError("--engine must be one of: " + ai::engineNameList());
    o.backend = *backend;
  } else {
    o.backend = ai::configuredBackend();
  }
  if (o.model.empty()) o.model = ai::modelFor(o.backend);

  o.notes = args.value("notes").value_or("");
  if (auto notesFile = args.value("notes-file")) {
    std::string reason;
    auto text = base::readFile(*notesFile, &reason);
    if (!text) throw CLIUsageError("Can't read --notes-file " + *notesFile + ": " + reason);
    if (!o.notes.empty() && !text->empty()) o.notes += "\n\n";
    o.notes += *text;
  }
  if (o.repo) {
    std::error_code ec;
    if (!std::filesystem::is_directory(*o.repo, ec)) {
      throw CLIUsageError("--repo " + *o.repo + " isn't a folder.");
    }
  }
  if (o.branch && !o.repo) throw CLIUsageError("--branch needs the repository: add --repo <dir>.");
  if (o.backend == ai::AIBackend::claudeCode && !o.repo) {
    throw CLIUsageError("The claude-code engine needs the repository: add --repo <dir>.");
  }
  if (!o.symbols.empty() && !o.symbolicate) throw CLIUsageError("--symbols goes with --symbolicate.");
  if (hasIssue && base::trim(*o.issueID).empty()) throw CLIUsageError("--issue needs an issue ID.");
  if (hasApp) o.app = findConfiguredApp(*o.appQuery);
  return o;
}

}  // namespace quillora::cli
