#include "base/secrets.h"

#include <cstdlib>

#include "base/error.h"
#include "base/files.h"
#include "base/strings.h"

namespace quillora::base {

namespace {
bool g_fromEnvironment = false;

PlatformSecretLookup& platformLookup() {
  static PlatformSecretLookup lookup = [](std::string_view account) {
    return platformStoreSecret(account);
  };
  return lookup;
}

std::optional<std::string> environment(std::string_view name) {
  const char* value = std::getenv(std::string(name).c_str());
  if (!value || !*value) return std::nullopt;
  return std::string(value);
}
}  // namespace

const std::vector<SecretAccount>& secretAccounts() {
  static const std::vector<SecretAccount> accounts = {
      {"anthropic-api-key", {"ANTHROPIC_API_KEY"}, {}},
      {"openai-api-key", {"OPENAI_API_KEY"}, {}},
      {"gemini-api-key", {"GEMINI_API_KEY", "GOOGLE_API_KEY"}, {}},
      {"github-token", {"GITHUB_TOKEN", "GH_TOKEN"}, {}},
      {"jira-api-token", {"JIRA_API_TOKEN"}, {}},
      {"trello-api-key", {"TRELLO_KEY"}, {}},
      {"trello-token", {"TRELLO_TOKEN"}, {}},
      {"google-service-account", {"QUILLORA_GOOGLE_SERVICE_ACCOUNT"}, {"GOOGLE_APPLICATION_CREDENTIALS"}},
      {"sentry-token", {"SENTRY_AUTH_TOKEN"}, {}},
      {"bugsnag-token", {"BUGSNAG_TOKEN"}, {}},
      {"backtrace-token", {"BACKTRACE_TOKEN"}, {}},
      {"appstoreconnect-p8", {"APP_STORE_CONNECT_KEY"}, {"APP_STORE_CONNECT_KEY_PATH"}},
      {"slack-webhook", {"SLACK_WEBHOOK_URL"}, {}},
      {"jenkins-api-token", {"JENKINS_API_TOKEN"}, {}},
  };
  return accounts;
}

std::string fallbackSecretVariable(std::string_view account) {
  std::string name = "QUILLORA_SECRET_";
  for (char c : toUpperASCII(account)) {
    name.push_back((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ? c : '_');
  }
  return name;
}

void setSecretsFromEnvironment(bool enabled) { g_fromEnvironment = enabled; }
bool secretsFromEnvironment() { return g_fromEnvironment; }

std::optional<std::string> secret(std::string_view account) {
  if (g_fromEnvironment) {
    const SecretAccount* known = nullptr;
    for (const auto& a : secretAccounts()) {
      if (a.account == account) known = &a;
    }
    if (known) {
      // The table lists plain variables before path variables for every account that has both.
      for (auto name : known->variables) {
        if (auto v = environment(name)) return v;
      }
      for (auto name : known->pathVariables) {
        if (auto path = environment(name)) {
          std::string reason;
          auto content = readFile(*path, &reason);
          if (!content) {
            throw Error(std::string(name) + " names " + *path + ", which can't be read: " + reason);
          }
          return trimmed(*content).empty() ? std::nullopt : std::optional(*content);
        }
      }
    }
    if (auto v = environment(fallbackSecretVariable(account))) return v;
  }
  if (const auto& lookup = platformLookup()) return lookup(account);
  return std::nullopt;
}

std::vector<std::string> secretVariablesSet() {
  std::vector<std::string> names;
  for (const auto& a : secretAccounts()) {
    for (auto name : a.variables)
      if (environment(name)) names.emplace_back(name);
    for (auto name : a.pathVariables)
      if (environment(name)) names.emplace_back(name);
    std::string fallback = fallbackSecretVariable(a.account);
    if (environment(fallback)) names.push_back(fallback);
  }
  return names;
}

void setPlatformSecretLookup(PlatformSecretLookup lookup) { platformLookup() = std::move(lookup); }

}  // namespace quillora::base
