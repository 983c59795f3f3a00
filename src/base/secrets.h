#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Secrets (API keys, tokens, service-account keys) by secret-store account name. On the command
// line, environment variables come first; then the platform store (service "com.quillora.app").
// Secret values never go into output, logs, files or error texts.
namespace quillora::base {

struct SecretAccount {
  std::string_view account;
  std::vector<std::string_view> variables;      // hold the secret itself
  std::vector<std::string_view> pathVariables;  // name a file whose content is the secret
};

// Every account with its variables, in the order they are tried.
const std::vector<SecretAccount>& secretAccounts();
// "QUILLORA_SECRET_" + the account upper-cased, every character other than A–Z and 0–9 as "_".
std::string fallbackSecretVariable(std::string_view account);

void setSecretsFromEnvironment(bool enabled);
bool secretsFromEnvironment();

// Looks a secret up. An account's path variable that names an unreadable file throws
// quillora::Error naming the variable and the file (never the content).
std::optional<std::string> secret(std::string_view account);

// The names of the secret variables that are set and not empty, in table order (never values).
std::vector<std::string> secretVariablesSet();

// The platform secret store. The default asks `secret-tool` (or `security` on macOS) through the
// process runner; a missing tool means "no stored secret". Tests replace it.
using PlatformSecretLookup = std::function<std::optional<std::string>(std::string_view account)>;
// Replaces the platform store; an empty function means there is none.
void setPlatformSecretLookup(PlatformSecretLookup lookup);

// The default lookup: `secret-tool lookup service com.quillora.app account <account>` on Linux,
// `security find-generic-password -s com.quillora.app -a <account> -w` on macOS. `tool` replaces
// the tool's name or path (tests). nullopt when the tool is missing, fails or prints nothing.
std::optional<std::string> platformStoreSecret(std::string_view account, std::string_view tool = {});

}  // namespace quillora::base
