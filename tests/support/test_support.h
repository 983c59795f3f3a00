#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/json.h"

// Helpers shared by the tests: temporary folders and running the built quillora binary as a user
// would, with its own QUILLORA_HOME.
namespace quillora::testing {

// A fresh folder, removed with everything in it when the object goes away.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  [[nodiscard]] const std::filesystem::path& path() const { return m_path; }
  // Writes a file (creating folders) and returns its path.
  std::filesystem::path write(const std::string& relative, const std::string& content) const;

 private:
  std::filesystem::path m_path;
};

struct RunResult {
  int exitCode = -1;
  std::string out;
  std::string err;
};

struct RunOptions {
  std::optional<std::string> stdinText;  // nullopt: /dev/null
  std::map<std::string, std::string> env;  // added to (or replacing) the clean environment
  std::vector<std::string> unsetEnv;
  std::optional<std::filesystem::path> cwd;
};

// Runs `program args…` and waits. The environment is the test process's, minus every secret
// variable and QUILLORA_CONFIG, plus opts.env.
RunResult run(const std::string& program, const std::vector<std::string>& args,
              const RunOptions& opts = {});

// Runs the built quillora with QUILLORA_HOME set to `home`.
RunResult runQuillora(const std::filesystem::path& home, const std::vector<std::string>& args,
                      RunOptions opts = {});

std::string readText(const std::filesystem::path& path);

// The keys every `quillora analyze --format json` result has that `doc` lacks (empty when whole).
std::vector<std::string> missingAnalyzeResultKeys(const base::Json& doc);
std::filesystem::path sourceDir();
std::filesystem::path fixture(const std::string& relative);

}  // namespace quillora::testing
