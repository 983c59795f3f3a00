#include <cstdlib>

#include "ai/ai_backend.h"
#include "base/paths.h"
#include "base/secrets.h"
#include "base/settings.h"
#include "base/strings.h"
#include "cli/cli_output.h"
#include "cli/commands/commands.h"
#include "cli/version_info.h"

namespace quillora::cli {

namespace {
bool runningOnCI() {
  for (const char* name : {"CI", "GITHUB_ACTIONS", "GITLAB_CI", "BUILDKITE", "JENKINS_URL",
                           "TEAMCITY_VERSION", "TF_BUILD", "CIRCLECI", "BITRISE_IO"}) {
    const char* value = std::getenv(name);
    if (value && *value && std::string_view(value) != "false" && std::string_view(value) != "0")
      return true;
  }
  return false;
}
}  // namespace

int runVersion(CommandContext& context) {
  auto backend = ai::configuredBackend();
  const auto& engine = ai::backendInfo(backend);
  std::string model = ai::modelFor(backend);
  auto config = base::Settings::shared().runConfigurationPath();
  auto secrets = base::secretVariablesSet();
  std::string executable = base::executablePath().string();

  if (context.format == "json") {
    base::Json doc = jsonResultHead("version", true);
    doc["version"] = kVersion;
    doc["build"] = kBuildNumber;
    doc["releaseDate"] = kReleaseDate;
    doc["executable"] = executable;
    doc["ci"] = runningOnCI();
    doc["config"] = config ? base::Json(config->string()) : base::Json(nullptr);
    doc["engine"] = std::string(engine.rawValue);
    doc["secretsFromEnvironment"] = secrets;
    writeJsonResult(context, doc);
    return 0;
  }
  std::string text = versionLine() + "\n";
  text += executable + "\n";
  text += "Engine: " + std::string(engine.displayName) + " (" + model + ")\n";
  text += "Config: " + (config ? config->string() : std::string("none (stored settings only)")) + "\n";
  text += "Secrets from the environment: " + (secrets.empty() ? std::string("none") : base::join(secrets, ", ")) + "\n";
  writeResult(context, text);
  return 0;
}

}  // namespace quillora::cli
