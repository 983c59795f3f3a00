#include "base/process_runner.h"
#include "base/secrets.h"

#include <chrono>

namespace quillora::base {

namespace {
constexpr const char* kService = "com.quillora.app";
// The store may ask the user to unlock it; an unanswered prompt is no stored secret.
constexpr Seconds kLookupLimit{60};
} // namespace

std::optional<std::string> platformStoreSecret(std::string_view account, std::string_view tool) {
  ProcessRequest request;
#ifdef __APPLE__
  request.executable = tool.empty() ? "security" : std::string(tool);
  request.arguments = {"find-generic-password", "-s", kService, "-a", std::string(account), "-w"};
#else
  request.executable = tool.empty() ? "secret-tool" : std::string(tool);
  request.arguments = {"lookup", "service", kService, "account", std::string(account)};
#endif
  request.timeLimit = kLookupLimit;
  ShellResult result;
  try {
    result = ProcessRunner().run(request);
  } catch (const ShellError&) {
    return std::nullopt; // no such tool: no stored secret
  } catch (const ShellTimeout&) {
    return std::nullopt; // never rethrown: its last-output tail could hold the secret
  } catch (const ShellLaunchError&) {
    return std::nullopt;
  }
  if (result.status != 0) return std::nullopt;
  std::string value = std::move(result.stdout);
  while (!value.empty() && (value.back() == '\n' || value.back() == '\r'))
    value.pop_back();
  if (value.empty()) return std::nullopt;
  return value;
}

} // namespace quillora::base
