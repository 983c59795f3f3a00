#include "ai/repo_context_builder.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <system_error>

#include <fmt/format.h>

#include "ai/repository_index.h"
#include "base/files.h"
#include "base/regex.h"
#include "base/settings.h"
#include "base/strings.h"
#include "base/text.h"

namespace quillora::ai {

namespace {

using crash::CrashPlatform;
using crash::StackFrame;

std::vector<std::string_view> sourceExtensions(CrashPlatform platform) {
  switch (platform) {
    case CrashPlatform::unity: return {"cs"};
    case CrashPlatform::iOSNative: return {"swift", "m", "mm"};
    case CrashPlatform::androidJava: return {"kt", "java"};
    case CrashPlatform::androidNative: return {"cpp", "cc", "c"};
    case CrashPlatform::unreal: return {"cpp", "h"};
    case CrashPlatform::unknown: break;
  }
  return {"cs", "swift", "m", "mm", "kt", "java", "cpp", "cc", "c"};
}

std::vector<std::string> pathComponents(std::string_view path) {
  std::vector<std::string> out;
  std::string current;
  auto flush = [&] {
    if (!current.empty() && current != ".") out.push_back(current);
    current.clear();
  };
  for (char c : path) {
    if (c == '/' || c == '\\') {
      flush();
    } else {
      current += c;
    }
  }
  flush();
  // "C:" of a Windows path names no folder of the repository.
  if (!out.empty() && out.front().size() == 2 && out.front()[1] == ':') out.erase(out.begin());
  return out;
}

// The parts of a symbol, outermost first: "Game.Player.PlayerController.Update (Single dt)" gives
// Game, Player, PlayerController, Update; "Foo::Bar(int)" gives Foo, Bar; "-[Foo bar:]" Foo, bar.
std::vector<std::string> symbolParts(std::string_view symbol) {
  symbol = base::trim(symbol);
  // IL2CPP names a C# method Type_Method_m<hash> ("InventorySlot_Refresh_m7F2C1A9B3E").
  static const base::Regex il2cpp(R"(^(?:\w+_)?([A-Za-z]\w*?)_([A-Za-z]\w*?)_m[0-9A-F]{6,}$)");
  if (auto match = il2cpp.fullMatch(symbol)) return {std::string(match->group(1)), std::string(match->group(2))};
  if (symbol.size() > 2 && (symbol[0] == '-' || symbol[0] == '+') && symbol[1] == '[') {
    auto space = symbol.find(' ');
    auto close = symbol.find(']');
    if (space != std::string_view::npos && close != std::string_view::npos && space < close) {
      return {std::string(symbol.substr(2, space - 2)),
              std::string(base::trim(symbol.substr(space + 1, close - space - 1)))};
    }
  }
  auto paren = symbol.find('(');
  if (paren != std::string_view::npos && paren > 0) symbol = base::trim(symbol.substr(0, paren));
  std::string text(symbol);
  text = base::replaceAll(text, "::", ".");
  std::vector<std::string> parts;
  for (auto& part : base::split(text, '.')) {
    std::string cleaned = base::trimmed(part);
    // Generic arities and inner classes name no file of their own.
    for (char stop : {'`', '$', '<'}) {
      auto at = cleaned.find(stop);
      if (at != std::string::npos) cleaned.resize(at);
    }
    auto space = cleaned.rfind(' ');  // a return type before the name
    if (space != std::string::npos) cleaned = cleaned.substr(space + 1);
    if (!cleaned.empty()) parts.push_back(cleaned);
  }
  return parts;
}

struct FrameTarget {
  std::string fileName;
  std::vector<std::string> components;  // the frame's path, for suffix comparison
  std::string method;                   // searched for when the frame has no line
};

std::vector<FrameTarget> targetsOf(const StackFrame& frame, CrashPlatform platform) {
  std::vector<std::string> parts = symbolParts(frame.symbol);
  std::string method = parts.empty() ? "" : parts.back();
  std::vector<FrameTarget> targets;
  if (frame.file && !base::trim(*frame.file).empty()) {
    auto components = pathComponents(*frame.file);
    if (components.empty()) return targets;
    if (components.size() == 1 && parts.size() >= 3) {
      // A bare file name: the symbol's namespace or package stands in for its folders.
      std::vector<std::string> folders(parts.begin(), parts.end() - 2);
      folders.push_back(components.back());
      components = folders;
    }
    targets.push_back({components.back(), components, method});
    return targets;
  }
  if (parts.size() < 2) return targets;
  std::string type = parts[parts.size() - 2];
  std::vector<std::string> folders(parts.begin(), parts.end() - 2);
  for (auto extension : sourceExtensions(platform)) {
    std::string name = type + "." + std::string(extension);
    auto components = folders;
    components.push_back(name);
    targets.push_back({name, components, method});
  }
  return targets;
}

size_t commonSuffix(const std::vector<std::string>& a, const std::vector<std::string>& b) {
  size_t n = 0;
  while (n < a.size() && n < b.size() &&
         base::toLowerASCII(a[a.size() - 1 - n]) == base::toLowerASCII(b[b.size() - 1 - n]))
    ++n;
  return n;
}

struct SourceFile {
  std::string path;
  std::vector<std::string> lines;
};

// The best readable candidate for the frame, by the rule in the header.
std::optional<SourceFile> findSource(const RepositoryIndex& index, const std::filesystem::path& repo,
                                     const std::vector<FrameTarget>& targets) {
  struct Candidate {
    size_t suffix;
    std::string_view path;
  };
  std::vector<Candidate> candidates;
  for (const auto& target : targets) {
    for (size_t i : index.filesNamed(target.fileName)) {
      std::string_view path = index.path(i);
      candidates.push_back({commonSuffix(pathComponents(path), target.components), path});
    }
  }
  std::sort(candidates.begin(), candidates.end(), [](const Candidate& a, const Candidate& b) {
    if (a.suffix != b.suffix) return a.suffix > b.suffix;
    if (a.path.size() != b.path.size()) return a.path.size() < b.path.size();
    return a.path < b.path;
  });
  for (const auto& candidate : candidates) {
    std::filesystem::path full = repo / std::string(candidate.path);
    std::error_code error;
    auto size = std::filesystem::file_size(full, error);
    if (error || size >= RepoContextBuilder::kLargeFileBytes) continue;
    auto content = base::readFile(full);
    if (!content || content->empty()) continue;
    if (std::memchr(content->data(), 0, std::min<size_t>(content->size(), 8192))) continue;
    SourceFile file{std::string(candidate.path), {}};
    std::string text = base::sanitizeUTF8(*content);
    for (auto line : base::splitLines(text)) file.lines.emplace_back(line);
    if (file.lines.empty()) continue;
    return file;
  }
  return std::nullopt;
}

bool isIdentifierChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// The first line that declares or calls `method` ("Update(" or "Update ("), else the first line
// naming it as a word, else line 1.
int searchLine(const std::vector<std::string>& lines, const std::string& method) {
  if (method.empty()) return 1;
  std::optional<int> mention;
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::string& line = lines[i];
    for (size_t at = line.find(method); at != std::string::npos; at = line.find(method, at + 1)) {
      size_t end = at + method.size();
      if ((at > 0 && isIdentifierChar(line[at - 1])) || (end < line.size() && isIdentifierChar(line[end])))
        continue;
      size_t next = line.find_first_not_of(" \t", end);
      if (next != std::string::npos && line[next] == '(') return static_cast<int>(i) + 1;
      if (!mention) mention = static_cast<int>(i) + 1;
    }
  }
  return mention.value_or(1);
}

CodeSnippet cut(const SourceFile& file, int start, int end, bool whole, const std::string& reason) {
  std::vector<std::string> lines(file.lines.begin() + (start - 1), file.lines.begin() + end);
  return {file.path, start, end, base::join(lines, "\n"), reason, whole};
}

// Bytes the snippet adds to the prompt: its rendering and the line break after it.
size_t promptBytes(const CodeSnippet& snippet) { return renderSnippet(snippet).size() + 1; }

std::string reasonOf(const StackFrame& frame) {
  std::string reason = "#" + std::to_string(frame.index) + " " + frame.displaySymbol();
  if (auto location = frame.location()) reason += " (" + *location + ")";
  return reason;
}

std::string fileNameOf(const std::string& path) {
  auto slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

std::vector<StackFrame> consideredFrames(const crash::CrashReport& report) {
  std::vector<StackFrame> frames;
  const crash::ThreadTrace* crashed = report.crashedThread();
  auto take = [&](const crash::ThreadTrace& thread) {
    for (const auto& frame : thread.frames) {
      if (frames.size() >= RepoContextBuilder::kFrameLimit) return;
      if (frame.isInApp) frames.push_back(frame);
    }
  };
  if (crashed) take(*crashed);
  for (const auto& thread : report.threads)
    if (&thread != crashed) take(thread);
  return frames;
}

RepoContextBuilder::RepoContextBuilder(std::filesystem::path repoFolder, CrashPlatform crashPlatform,
                                       size_t budgetBytes)
    : repo(std::move(repoFolder)), platform(crashPlatform), maxBytes(budgetBytes) {}

RepoContextBuilder::RepoContextBuilder(std::filesystem::path repoFolder, CrashPlatform crashPlatform)
    : repo(std::move(repoFolder)), platform(crashPlatform) {
  long long kb = base::Settings::shared().integer("maxContextKB").value_or(kDefaultMaxContextKB);
  maxBytes = static_cast<size_t>(std::max(kb, 1LL)) * 1024;
}

std::vector<CodeSnippet> RepoContextBuilder::build(const crash::CrashReport& report,
                                                   const Progress& progress,
                                                   bool engineSearchesItself) const {
  auto say = [&](const std::string& line) {
    if (progress) progress(line);
  };
  std::vector<CodeSnippet> snippets;
  std::vector<StackFrame> frames = consideredFrames(report);
  size_t framesFound = 0;
  std::vector<std::string> names;
  if (!frames.empty()) {
    RepositoryIndex index = RepositoryIndex::build(repo);
    if (index.reachedLimit()) {
      say(fmt::format("{} holds more than {} files; only the first {} were searched", repo.string(),
                      RepositoryIndex::kFileLimit, RepositoryIndex::kFileLimit));
    }
    size_t used = 0;
    for (const auto& frame : frames) {
      if (maxBytes < used || maxBytes - used < kStopBelowBytes) break;
      size_t remaining = maxBytes - used;
      auto targets = targetsOf(frame, platform);
      if (targets.empty()) continue;
      auto file = findSource(index, repo, targets);
      if (!file) continue;
      int lastLine = static_cast<int>(file->lines.size());
      int target = frame.line && *frame.line >= 1 ? std::min(*frame.line, lastLine)
                                                  : searchLine(file->lines, targets.front().method);
      // A frame inside an excerpt already taken adds nothing new.
      bool covered = std::any_of(snippets.begin(), snippets.end(), [&](const CodeSnippet& s) {
        return s.path == file->path && s.startLine <= target && target <= s.endLine;
      });
      if (covered) {
        ++framesFound;
        continue;
      }
      std::optional<CodeSnippet> snippet;
      std::string reason = reasonOf(frame);
      if (lastLine <= kWholeFileLines) {
        CodeSnippet whole = cut(*file, 1, lastLine, true, reason);
        if (promptBytes(whole) <= remaining) snippet = std::move(whole);
      }
      // A window that doesn't fit narrows around the target line until it does.
      for (int radius = kWindowRadius; !snippet && radius >= 0; radius -= 10) {
        CodeSnippet window = cut(*file, std::max(1, target - radius),
                                 std::min(lastLine, target + radius), false, reason);
        if (promptBytes(window) <= remaining) snippet = std::move(window);
        if (radius == 0) break;
      }
      if (!snippet) continue;
      used += promptBytes(*snippet);
      ++framesFound;
      say(fmt::format("Found {} (lines {}-{})", snippet->path, snippet->startLine, snippet->endLine));
      std::string name = fileNameOf(snippet->path);
      if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
      snippets.push_back(std::move(*snippet));
    }
  }
  if (!snippets.empty()) {
    say(fmt::format("Found source for {} frame(s): {}", framesFound, base::join(names, ", ")));
  } else if (engineSearchesItself) {
    say("No direct match; Claude Code will search the repository itself");
  } else {
    say("No matching source files found in " + repo.string());
  }
  return snippets;
}

}  // namespace quillora::ai
