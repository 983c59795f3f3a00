#include "base/process_runner.h"
#include "base/secrets.h"
#include "support/test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace quillora::base {
namespace {

using quillora::testing::TempDir;

// Stands in for secret-tool: answers only the exact lookup the store makes.
std::filesystem::path fakeSecretTool(const TempDir& dir, const std::string& relative) {
  auto path = dir.write(relative, "#!/bin/sh\n"
                                  "[ \"$1 $2 $3 $4\" = 'lookup service com.quillora.app account' ] "
                                  "|| exit 2\n"
                                  "case \"$5\" in\n"
                                  "  github-token) printf 'ghp_stored\\n' ;;\n"
                                  "  empty) ;;\n"
                                  "  *) echo 'No such secret' >&2; exit 1 ;;\n"
                                  "esac\n");
  std::filesystem::permissions(path, std::filesystem::perms(0755));
  return path;
}

TEST(PlatformSecretStore, AsksTheStoresToolAndTreatsEveryFailureAsNoSecret) {
  TempDir dir;
  std::string tool = fakeSecretTool(dir, "secret-tool").string();
  struct Case {
    std::string account;
    std::string tool;
    std::optional<std::string> secret;
  } cases[] = {
      {"github-token", tool, "ghp_stored"},
      {"anthropic-api-key", tool, std::nullopt},
      {"empty", tool, std::nullopt},
      {"github-token", (dir.path() / "missing-tool").string(), std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(platformStoreSecret(c.account, c.tool), c.secret) << c.account << " " << c.tool;
  }
}

TEST(PlatformSecretStore, IsWhatSecretLooksUpByDefault) {
  // The fake is found through the tool folders added to the login path, which start at $HOME; it
  // must be set before the path is first computed in this process.
  TempDir home;
  auto fake = fakeSecretTool(home, ".local/bin/secret-tool");
  ::setenv("HOME", home.path().c_str(), 1);
  if (ProcessRunner::resolve("secret-tool") != fake) {
    GTEST_SKIP() << "a real secret-tool comes first on the login path, or the path was "
                    "computed in this process before HOME changed";
  }
  setSecretsFromEnvironment(false);
  EXPECT_EQ(secret("github-token"), "ghp_stored");
  EXPECT_EQ(secret("slack-webhook"), std::nullopt);
}

} // namespace
} // namespace quillora::base
