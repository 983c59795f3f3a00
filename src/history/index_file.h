#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The text of "index.json", split into its summaries without decoding them. A command lists 50
// of 5,000 summaries, a search decodes only those that contain its words, and a save splices
// one new summary in front of the others' text: decoding all of them would cost more than a
// whole `quillora history` run may take. Each element is still decoded by nlohmann::json when it
// is used.
namespace quillora::history {

// Folds text as the search does: ASCII lower-cased, other runs folded in case and diacritics.
// The few non-ASCII runs of an index ("★", "·", "…") recur, so their folding is remembered.
class RawFolder {
 public:
  void fold(std::string_view raw, std::string& out);

 private:
  std::vector<std::pair<std::string, std::string>> m_runs;  // a few; a list beats hashing
};

class IndexFile {
 public:
  // Splits a document {"version": …, "signatureVersion": …, "summaries": [ … ]} (keys in any
  // order, others ignored). nullopt when the text isn't one JSON object or "summaries" isn't an
  // array; a broken element inside the array is found only when it is decoded.
  static std::optional<IndexFile> split(std::string text);
  // The index text for summaries already encoded as JSON objects, in order.
  static std::string compose(int version, int signatureVersion, const std::vector<std::string_view>& elements);

  // The integer values of "version" and "signatureVersion"; nullopt when absent or not whole.
  [[nodiscard]] std::optional<long long> version() const { return m_version; }
  [[nodiscard]] std::optional<long long> signatureVersion() const { return m_signatureVersion; }
  [[nodiscard]] size_t size() const { return m_spans.size(); }
  [[nodiscard]] std::string_view element(size_t index) const;
  // Elements whose text may contain `needle` (a plain needle, folded as the search folds) once
  // folded, in order. Elements with "\u" escapes are always included.
  [[nodiscard]] std::vector<size_t> elementsMayContain(std::string_view needle) const;
  // True when `needle` can be looked for in the raw text (see elementsMayContain).
  static bool isPlainNeedle(std::string_view needle);
  // The keys and raw values of one element's top level, in order; nullopt when it isn't an
  // object the scanner can follow.
  using Field = std::pair<std::string_view, std::string_view>;
  static std::optional<std::vector<Field>> fields(std::string_view element);

 private:
  IndexFile() = default;
  struct Span {
    size_t begin = 0, end = 0;
    bool unusual = false;  // holds other than ASCII or "\u" escapes
  };
  std::string m_text;
  std::vector<Span> m_spans;
  std::optional<long long> m_version;
  std::optional<long long> m_signatureVersion;
};

}  // namespace quillora::history
