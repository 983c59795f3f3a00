// Settings layering and the secret lookup order, in-process.
#include <gtest/gtest.h>

#include <cstdlib>

#include "base/error.h"
#include "base/secrets.h"
#include "base/settings.h"
#include "support/test_support.h"

namespace quillora::base {
namespace {

using quillora::testing::TempDir;

class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : m_name(name) {
    if (const char* old = std::getenv(name)) m_old = old;
    if (value) setenv(name, value, 1); else unsetenv(name);
  }
  ~ScopedEnv() {
    if (m_old) setenv(m_name, m_old->c_str(), 1); else unsetenv(m_name);
  }

 private:
  const char* m_name;
  std::optional<std::string> m_old;
};

TEST(Settings, RunConfigurationOverlaysStoredSettingsAndFlattensNestedObjects) {
  TempDir dir;
  auto& settings = Settings::shared();
  settings.reset({{"triage", {{"count", 3}, {"hour", 4}}}, {"branchPrefix", "stored/"}});
  auto config = dir.write("run.json", R"({"triage": {"count": 7}, "sources": {"sentry": {"host": "http://127.0.0.1:9"}}})");
  EXPECT_TRUE(settings.applyRunConfiguration(config).empty());
  EXPECT_EQ(settings.integer("triage.count"), 7);
  EXPECT_EQ(settings.integer("triage.hour"), 4);
  EXPECT_EQ(settings.text("branchPrefix"), "stored/");
  EXPECT_EQ(settings.text("sources.sentry.host"), "http://127.0.0.1:9");
  settings.reset();
}

TEST(Settings, WrongTypesNameTheKeyAndTheExpectedType) {
  TempDir dir;
  struct Case { const char* json; const char* message; };
  for (const Case& c : std::vector<Case>{
           {R"({"inAppPrefixes": "Game."})", "must be a list of strings."},
           {R"({"cost": {"monthlyBudget": "20"}})", "must be a number."},
           {R"({"triage": {"enabled": 1}})", "must be true or false."},
           {R"({"apps": [1]})", "must be a list of JSON objects."},
           {R"({"maxContextKB": 1.5})", "must be a whole number."}}) {
    auto path = dir.write("c.json", c.json);
    try {
      Settings::shared().applyRunConfiguration(path);
      ADD_FAILURE() << c.json;
    } catch (const ConfigError& e) {
      EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
    }
  }
  Settings::shared().reset();
}

TEST(Secrets, EnvironmentVariablesWinInTableOrderThenTheAccountFallback) {
  setSecretsFromEnvironment(true);
  setPlatformSecretLookup([](std::string_view account) -> std::optional<std::string> {
    return "store-" + std::string(account);
  });
  {
    ScopedEnv gemini("GEMINI_API_KEY", "");
    ScopedEnv google("GOOGLE_API_KEY", "from-google");
    EXPECT_EQ(secret("gemini-api-key"), "from-google");
  }
  {
    ScopedEnv fallback("QUILLORA_SECRET_SLACK_WEBHOOK", "hook");
    ScopedEnv slack("SLACK_WEBHOOK_URL", nullptr);
    EXPECT_EQ(secret("slack-webhook"), "hook");
  }
  EXPECT_EQ(fallbackSecretVariable("appstoreconnect-p8"), "QUILLORA_SECRET_APPSTORECONNECT_P8");
  {
    ScopedEnv key("ANTHROPIC_API_KEY", nullptr);
    ScopedEnv fb("QUILLORA_SECRET_ANTHROPIC_API_KEY", nullptr);
    EXPECT_EQ(secret("anthropic-api-key"), "store-anthropic-api-key");
    setSecretsFromEnvironment(false);
    ScopedEnv set("ANTHROPIC_API_KEY", "env");
    EXPECT_EQ(secret("anthropic-api-key"), "store-anthropic-api-key");
    setSecretsFromEnvironment(true);
  }
  setPlatformSecretLookup(nullptr);
}

TEST(Secrets, PathVariablesAreReadAndAnUnreadableFileIsAnError) {
  setSecretsFromEnvironment(true);
  TempDir dir;
  auto key = dir.write("key.json", "{\"type\": \"service_account\"}");
  {
    ScopedEnv inline_("QUILLORA_GOOGLE_SERVICE_ACCOUNT", nullptr);
    ScopedEnv path("GOOGLE_APPLICATION_CREDENTIALS", key.c_str());
    EXPECT_EQ(secret("google-service-account"), "{\"type\": \"service_account\"}");
  }
  {
    ScopedEnv path("APP_STORE_CONNECT_KEY_PATH", "/nonexistent/AuthKey.p8");
    ScopedEnv inline_("APP_STORE_CONNECT_KEY", nullptr);
    try {
      secret("appstoreconnect-p8");
      ADD_FAILURE();
    } catch (const Error& e) {
      EXPECT_EQ(std::string(e.what()),
                "APP_STORE_CONNECT_KEY_PATH names /nonexistent/AuthKey.p8, which can't be read: No "
                "such file or directory");
    }
  }
}

}  // namespace
}  // namespace quillora::base
