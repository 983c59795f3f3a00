#pragma once

#include <string>

#include "base/error.h"

namespace quillora::ai {

// The failure of an engine call. what() is the user-facing sentence of its case; kind() is "ai",
// so the command line exits 1.
class AIError : public Error {
 public:
  enum class Case { missingAPIKey, http, refusal, badResponse, cli, failed, missingRepo, truncated };

  // vendor: "Anthropic", "OpenAI" or "Gemini".
  static AIError missingAPIKey(const std::string& vendor);
  // status < 1 means no HTTP status was received (a transport failure).
  static AIError http(const std::string& provider, int status, const std::string& message);
  // engine: the engine's display name.
  static AIError refusal(const std::string& engine);
  static AIError badResponse(const std::string& detail);
  static AIError cli(const std::string& message);
  static AIError failed(const std::string& message);
  static AIError missingRepo();
  static AIError truncated();

  [[nodiscard]] Case errorCase() const { return m_case; }
  // The HTTP status of an `http` failure; 0 for every other case.
  [[nodiscard]] int status() const { return m_status; }
  [[nodiscard]] std::string kind() const override { return "ai"; }

 private:
  AIError(Case errorCase, const std::string& message, int status = 0)
      : Error(message), m_case(errorCase), m_status(status) {}
  Case m_case;
  int m_status;
};

}  // namespace quillora::ai
