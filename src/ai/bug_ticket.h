#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

// What ticket import hands to the analysis: a Jira or Trello ticket with its pictures.
namespace quillora::ai {

enum class TicketSource { jira, trello };

// "Jira" or "Trello".
std::string_view ticketSourceName(TicketSource source);

// A picture offered to the engine: a screenshot or a still frame of a screen recording.
struct PromptImage {
  std::string url;  // local file URL ("file:///…"); a plain path is accepted too
  std::string caption;
};

// The file system path of a picture's URL, percent-escapes decoded.
std::filesystem::path imagePath(const PromptImage& image);

struct TicketComment {
  std::string author;
  std::string body;
};

struct BugTicket {
  TicketSource source = TicketSource::jira;
  std::string key;  // "GAME-142", or a Trello card's short id
  std::string title;
  std::string description;
  std::vector<TicketComment> comments;
  std::vector<PromptImage> images;
};

// An image read for an engine that takes inline images.
struct LoadedImage {
  std::string caption;
  std::string base64;  // the file's bytes in standard base64
  long long bytes = 0;  // before encoding
  std::string mimeType;
};

inline constexpr size_t kTicketTextLimit = 40'000;

// The ticket as prompt text: "<key>: <title>", the description, then the comments, at most
// `limit` user-perceived characters (a longer text is cut and ends with "…").
std::string renderTicketText(const BugTicket& ticket, size_t limit = kTicketTextLimit);

}  // namespace quillora::ai
