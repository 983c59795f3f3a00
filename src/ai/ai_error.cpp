#include "ai/ai_error.h"

namespace quillora::ai {

AIError AIError::missingAPIKey(const std::string& vendor) {
  return {Case::missingAPIKey,
          "Add your " + vendor + " API key in Settings → AI, or pick another engine in the toolbar."};
}

AIError AIError::http(const std::string& provider, int status, const std::string& message) {
  std::string text;
  if (status == 401 || status == 403) {
    text = "Check the API key in Settings → AI.";
  } else if (status == 404) {
    text = "Check the model name in Settings → AI.";
  } else if (status == 429) {
    text = "You've hit a rate limit or run out of credit; wait a bit or check your plan.";
  } else if (status >= 1) {
    text = provider + " error " + std::to_string(status) + ": " + message;
  } else {
    text = provider + " error: " + message;
  }
  return {Case::http, text, status};
}

AIError AIError::refusal(const std::string& engine) {
  return {Case::refusal, engine + " declined to answer this request."};
}

AIError AIError::badResponse(const std::string& detail) {
  return {Case::badResponse, "Couldn't read the AI's response: " + detail};
}

AIError AIError::cli(const std::string& message) { return {Case::cli, "Claude Code: " + message}; }

AIError AIError::failed(const std::string& message) { return {Case::failed, message}; }

AIError AIError::missingRepo() {
  return {Case::missingRepo, "Claude Code mode needs your project folder. Choose a repository first."};
}

AIError AIError::truncated() {
  return {Case::truncated,
          "The response was cut off before it finished. Try again, pick a larger model, or use "
          "Claude Code mode for large fixes."};
}

}  // namespace quillora::ai
