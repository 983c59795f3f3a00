#include "ai/bug_ticket.h"

#include "base/strings.h"
#include "base/text.h"

namespace quillora::ai {

std::string_view ticketSourceName(TicketSource source) {
  return source == TicketSource::jira ? "Jira" : "Trello";
}

namespace {
int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
}  // namespace

std::filesystem::path imagePath(const PromptImage& image) {
  std::string_view url = image.url;
  if (url.substr(0, 7) != "file://") return std::filesystem::path(std::string(url));
  url.remove_prefix(7);
  if (url.substr(0, 9) == "localhost") url.remove_prefix(9);
  std::string decoded;
  for (size_t i = 0; i < url.size(); ++i) {
    if (url[i] == '%' && i + 2 < url.size() && hexValue(url[i + 1]) >= 0 && hexValue(url[i + 2]) >= 0) {
      decoded += static_cast<char>(hexValue(url[i + 1]) * 16 + hexValue(url[i + 2]));
      i += 2;
    } else {
      decoded += url[i];
    }
  }
  return decoded;
}

std::string renderTicketText(const BugTicket& ticket, size_t limit) {
  std::string text = ticket.key.empty() ? ticket.title : ticket.key + ": " + ticket.title;
  text += "\n";
  if (!base::trim(ticket.description).empty())
    text += "\nDescription:\n" + base::trimmed(ticket.description) + "\n";
  if (!ticket.comments.empty()) {
    text += "\nComments:\n";
    for (const auto& comment : ticket.comments) {
      std::string author = comment.author.empty() ? "(unknown)" : comment.author;
      text += "- " + author + ": " + base::trimmed(comment.body) + "\n";
    }
  }
  if (base::graphemeCount(text) > limit) {
    text = std::string(base::prefixGraphemes(text, limit == 0 ? 0 : limit - 1)) + "…";
  }
  return text;
}

}  // namespace quillora::ai
