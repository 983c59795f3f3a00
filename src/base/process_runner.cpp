#include "base/process_runner.h"

#include "base/cancellation.h"
#include "base/child_process.h"
#include "base/paths.h"
#include "base/strings.h"
#include "base/text.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

extern char** environ;

namespace quillora::base {

namespace {
constexpr const char* kDefaultSearchPath =
    "/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin";

bool isExecutableFile(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
         ::access(path.c_str(), X_OK) == 0;
}

std::vector<std::string> currentEnvironment() {
  std::vector<std::string> entries;
  for (char** entry = environ; entry && *entry; ++entry)
    entries.emplace_back(*entry);
  return entries;
}

std::string_view variableName(std::string_view entry) {
  return entry.substr(0, entry.find('='));
}

// The system's environment with `overrides` set; a later override of one name wins.
std::vector<std::string>
environmentWith(const std::vector<std::pair<std::string, std::string>>& overrides) {
  std::vector<std::string> entries;
  for (char** entry = environ; entry && *entry; ++entry) {
    std::string_view name = variableName(*entry);
    bool replaced = std::any_of(overrides.begin(), overrides.end(),
                                [&](const auto& item) { return item.first == name; });
    if (!replaced) entries.emplace_back(*entry);
  }
  for (size_t i = 0; i < overrides.size(); ++i) {
    bool setLater =
        std::any_of(overrides.begin() + static_cast<std::ptrdiff_t>(i) + 1, overrides.end(),
                    [&](const auto& item) { return item.first == overrides[i].first; });
    if (!setLater) entries.push_back(overrides[i].first + "=" + overrides[i].second);
  }
  return entries;
}
} // namespace

ShellResult ProcessRunner::run(const ProcessRequest& request) const {
  throwIfCancelled();
  auto path = resolve(request.executable);
  if (!path) throw ShellError::notFound(request.executable);

  std::vector<std::pair<std::string, std::string>> overrides = {
      {"PATH", loginSearchPath()},
      {"GIT_TERMINAL_PROMPT", "0"},
      {"NO_COLOR", "1"},
      // Tools speak English whatever the user's locale, so their messages can be recognised.
      {"LC_ALL", "C.UTF-8"},
      {"LANGUAGE", "en"},
  };
  overrides.insert(overrides.end(), request.environment.begin(), request.environment.end());

  detail::ChildSpec childSpec;
  childSpec.path = path->string();
  childSpec.argv.reserve(request.arguments.size() + 1);
  childSpec.argv.push_back(childSpec.path);
  childSpec.argv.insert(childSpec.argv.end(), request.arguments.begin(), request.arguments.end());
  childSpec.environment = environmentWith(overrides);
  childSpec.workingDirectory = request.workingDirectory;
  childSpec.standardInput = request.standardInput ? &*request.standardInput : nullptr;
  childSpec.timeLimit = request.timeLimit;
  childSpec.stallLimit = request.stallLimit;
  childSpec.label = request.label.empty() ? request.executable : request.label;
  childSpec.onStdoutLine = &request.onStdoutLine;
  childSpec.onStderrLine = &request.onStderrLine;

  detail::ChildOutcome outcome = detail::runChild(childSpec, m_timing);
  return {outcome.status, detail::decodeLossy(std::move(outcome.out)),
          detail::decodeLossy(std::move(outcome.err))};
}

ShellResult ProcessRunner::run(std::string executable, std::vector<std::string> arguments) const {
  ProcessRequest request;
  request.executable = std::move(executable);
  request.arguments = std::move(arguments);
  return run(request);
}

std::optional<std::filesystem::path> ProcessRunner::resolve(std::string_view tool) {
  if (tool.empty()) return std::nullopt;
  std::string name = tool.front() == '~' ? expandTilde(tool).string() : std::string(tool);
  if (name.front() == '/') {
    // An explicit path is the user's choice: it is used or refused, never searched for.
    if (isExecutableFile(name)) return std::filesystem::path(name);
    return std::nullopt;
  }
  for (const auto& folder : split(loginSearchPath(), ':')) {
    if (folder.empty()) continue;
    std::string candidate = folder + "/" + name;
    if (isExecutableFile(candidate)) return std::filesystem::path(candidate);
  }
  return std::nullopt;
}

const std::string& ProcessRunner::loginSearchPath() {
  static const std::string path = [] {
    const char* shell = std::getenv("SHELL");
    return computeLoginSearchPath(shell ? shell : "", homeDirectory());
  }();
  return path;
}

std::string ProcessRunner::computeLoginSearchPath(std::string_view shell,
                                                  const std::filesystem::path& home,
                                                  Seconds limit) {
  detail::ChildSpec childSpec;
  childSpec.path = shell.empty() ? "/bin/zsh" : std::string(shell);
  childSpec.argv = {childSpec.path, "-l", "-c", "printf %s \"$PATH\""};
  childSpec.environment = currentEnvironment();
  // A slow profile (or one waiting for input) must not hold up every tool for ever.
  childSpec.timeLimit = limit;
  childSpec.abandonInsteadOfStopping = true;
  childSpec.label = childSpec.path;

  std::string printed;
  try {
    detail::ChildOutcome outcome = detail::runChild(childSpec, ProcessTiming{});
    if (isValidUTF8(outcome.out)) printed = trimmed(outcome.out);
  } catch (const ShellLaunchError&) {
    return kDefaultSearchPath;
  } catch (const ShellTimeout&) {
    // Treated like a shell that printed nothing.
  }
  if (printed.empty()) printed = kDefaultSearchPath;

  const std::string homeText = home.string();
  return join({printed, homeText + "/.local/bin", homeText + "/.claude/local", "/opt/homebrew/bin",
               "/usr/local/bin", homeText + "/google-cloud-sdk/bin",
               "/opt/homebrew/share/google-cloud-sdk/bin", "/usr/local/share/google-cloud-sdk/bin"},
              ":");
}

} // namespace quillora::base
