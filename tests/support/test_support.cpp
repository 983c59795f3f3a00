#include "support/test_support.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace quillora::testing {

TempDir::TempDir() {
  std::random_device random;
  auto base = std::filesystem::temp_directory_path();
  for (int attempt = 0; attempt < 100; ++attempt) {
    auto candidate = base / ("quillora-test-" + std::to_string(random()));
    if (std::filesystem::create_directory(candidate)) {
      m_path = std::filesystem::canonical(candidate);
      return;
    }
  }
  throw std::runtime_error("can't make a temporary folder");
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(m_path, ec);
}

std::filesystem::path TempDir::write(const std::string& relative, const std::string& content) const {
  auto path = m_path / relative;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

std::string readText(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

std::filesystem::path sourceDir() { return QUILLORA_SOURCE_DIR; }

std::filesystem::path fixture(const std::string& relative) {
  return sourceDir() / "tests" / "fixtures" / relative;
}

namespace {
bool isSecretVariable(const std::string& name) {
  static const char* secrets[] = {"ANTHROPIC_API_KEY", "OPENAI_API_KEY", "GEMINI_API_KEY",
                                  "GOOGLE_API_KEY", "GITHUB_TOKEN", "GH_TOKEN", "JIRA_API_TOKEN",
                                  "TRELLO_KEY", "TRELLO_TOKEN", "QUILLORA_GOOGLE_SERVICE_ACCOUNT",
                                  "GOOGLE_APPLICATION_CREDENTIALS", "SENTRY_AUTH_TOKEN",
                                  "BUGSNAG_TOKEN", "BACKTRACE_TOKEN", "APP_STORE_CONNECT_KEY",
                                  "APP_STORE_CONNECT_KEY_PATH", "SLACK_WEBHOOK_URL",
                                  "JENKINS_API_TOKEN", "QUILLORA_CONFIG"};
  for (const char* s : secrets)
    if (name == s) return true;
  return name.rfind("QUILLORA_SECRET_", 0) == 0;
}
}  // namespace

RunResult run(const std::string& program, const std::vector<std::string>& args, const RunOptions& opts) {
  TempDir io;
  auto inPath = io.path() / "stdin";
  auto outPath = io.path() / "stdout";
  auto errPath = io.path() / "stderr";
  if (opts.stdinText) std::ofstream(inPath, std::ios::binary) << *opts.stdinText;

  std::map<std::string, std::string> env;
  for (char** e = environ; *e; ++e) {
    std::string entry(*e);
    auto eq = entry.find('=');
    if (eq == std::string::npos) continue;
    std::string name = entry.substr(0, eq);
    if (!isSecretVariable(name)) env[name] = entry.substr(eq + 1);
  }
  for (const auto& name : opts.unsetEnv) env.erase(name);
  for (const auto& [k, v] : opts.env) env[k] = v;
  std::vector<std::string> envStrings;
  for (const auto& [k, v] : env) envStrings.push_back(k + "=" + v);

  pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    int in = opts.stdinText ? open(inPath.c_str(), O_RDONLY) : open("/dev/null", O_RDONLY);
    int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(in, 0);
    dup2(out, 1);
    dup2(err, 2);
    if (opts.cwd && chdir(opts.cwd->c_str()) != 0) _exit(126);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (auto& s : envStrings) envp.push_back(s.data());
    envp.push_back(nullptr);
    execve(program.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
  }
  RunResult result;
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = readText(outPath);
  result.err = readText(errPath);
  return result;
}

RunResult runQuillora(const std::filesystem::path& home, const std::vector<std::string>& args,
                      RunOptions opts) {
  opts.env["QUILLORA_HOME"] = home.string();
  // The login search path comes from $SHELL -l; the user's own profile (slow, or printing) must
  // not decide a test's outcome.
  opts.env.try_emplace("SHELL", "/bin/sh");
  return run(QUILLORA_BINARY, args, opts);
}

std::vector<std::string> missingAnalyzeResultKeys(const base::Json& doc) {
  std::vector<std::string> missing;
  for (const char* key : {"schemaVersion", "command", "ok", "exitCode", "quilloraVersion", "engine",
                          "crash", "symbolication", "analysis", "contextFiles", "usage", "costUSD",
                          "durationSeconds", "budget", "duplicates", "historyRecordID", "branch",
                          "verification", "warnings"}) {
    if (!doc.contains(key)) missing.emplace_back(key);
  }
  return missing;
}

}  // namespace quillora::testing
