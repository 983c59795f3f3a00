#include "ai/fix_analysis.h"

#include "ai/ai_error.h"
#include "base/strings.h"

namespace quillora::ai {

using base::Json;

Json toJson(const CodeExcerpt& e) {
  return {{"file", e.file},           {"line", e.line},
          {"language", e.language},   {"code", e.code},
          {"crashLine", e.crashLine}, {"explanation", e.explanation}};
}

Json toJson(const CodeChange& c) {
  return {{"file", c.file},     {"line", c.line},     {"language", c.language},
          {"explanation", c.explanation}, {"before", c.before}, {"after", c.after}};
}

Json toJson(const FixAnalysis& a) {
  Json excerpts = Json::array();
  for (const auto& e : a.rootCauseCode) excerpts.push_back(toJson(e));
  Json changes = Json::array();
  for (const auto& c : a.codeChanges) changes.push_back(toJson(c));
  return {{"title", a.title},
          {"severity", a.severity},
          {"confidence", a.confidence},
          {"rootCause", a.rootCause},
          {"rootCauseCode", excerpts},
          {"fixSummary", a.fixSummary},
          {"reproSteps", a.reproSteps},
          {"affectedFiles", a.affectedFiles},
          {"patch", a.patch},
          {"testSuggestions", a.testSuggestions},
          {"codeChanges", changes}};
}

Json toJson(const FixImplementation& i) {
  return {{"summary", i.summary}, {"filesChanged", i.filesChanged}};
}

namespace {

std::vector<std::string> stringList(const Json& object, std::string_view key) {
  std::vector<std::string> out;
  auto it = object.find(key);
  if (it == object.end() || !it->is_array()) return out;
  for (const Json& element : *it) {
    if (element.is_string()) {
      out.push_back(element.get<std::string>());
    } else if (element.is_number()) {
      out.push_back(element.dump());
    }
  }
  return out;
}

template <typename T>
std::vector<T> objectList(const Json& object, std::string_view key,
                          std::optional<T> (*decode)(const Json&)) {
  std::vector<T> out;
  auto it = object.find(key);
  if (it == object.end() || !it->is_array()) return out;
  for (const Json& element : *it) {
    if (auto item = decode(element)) out.push_back(std::move(*item));
  }
  return out;
}

std::optional<CodeExcerpt> excerptFromJson(const Json& json) {
  if (!json.is_object()) return std::nullopt;
  auto file = base::readString(json, "file");
  auto line = base::readInteger(json, "line");
  auto language = base::readString(json, "language");
  auto code = base::readString(json, "code");
  auto crashLine = base::readInteger(json, "crashLine");
  auto explanation = base::readString(json, "explanation");
  if (!file || !line || !language || !code || !crashLine || !explanation) return std::nullopt;
  return CodeExcerpt{*file, *line, *language, *code, *crashLine, *explanation};
}

std::optional<CodeChange> changeFromJson(const Json& json) {
  if (!json.is_object()) return std::nullopt;
  auto file = base::readString(json, "file");
  auto line = base::readInteger(json, "line");
  auto language = base::readString(json, "language");
  auto explanation = base::readString(json, "explanation");
  auto before = base::readString(json, "before");
  auto after = base::readString(json, "after");
  if (!file || !line || !language || !explanation || !before || !after) return std::nullopt;
  return CodeChange{*file, *line, *language, *explanation, *before, *after};
}

// The candidates of an answer text, in the order they are tried.
std::vector<std::string_view> candidates(std::string_view answer) {
  std::string_view text = base::trim(answer);
  if (text.empty()) throw AIError::badResponse("empty response");
  std::vector<std::string_view> out{text};
  auto open = text.find('{');
  auto close = text.rfind('}');
  if (open != std::string_view::npos && close != std::string_view::npos && open < close)
    out.push_back(text.substr(open, close - open + 1));
  return out;
}

template <typename T>
T decodeAnswer(std::string_view answer, std::optional<T> (*decode)(const Json&)) {
  for (std::string_view candidate : candidates(answer)) {
    auto json = base::parseJson(candidate);
    if (!json) continue;
    if (auto value = decode(*json)) return std::move(*value);
  }
  throw AIError::badResponse("not JSON");
}

}  // namespace

std::optional<FixAnalysis> fixAnalysisFromJson(const Json& json) {
  if (!json.is_object()) return std::nullopt;
  auto title = base::readString(json, "title");
  if (!title) return std::nullopt;
  FixAnalysis a;
  a.title = *title;
  a.severity = base::readString(json, "severity").value_or("medium");
  a.confidence = base::readString(json, "confidence").value_or("low");
  a.rootCause = base::readString(json, "rootCause").value_or("");
  a.rootCauseCode = objectList<CodeExcerpt>(json, "rootCauseCode", excerptFromJson);
  a.fixSummary = base::readString(json, "fixSummary").value_or("");
  a.reproSteps = stringList(json, "reproSteps");
  a.affectedFiles = stringList(json, "affectedFiles");
  a.patch = base::readString(json, "patch").value_or("");
  a.testSuggestions = stringList(json, "testSuggestions");
  a.codeChanges = objectList<CodeChange>(json, "codeChanges", changeFromJson);
  return a;
}

std::optional<FixImplementation> fixImplementationFromJson(const Json& json) {
  if (!json.is_object()) return std::nullopt;
  return FixImplementation{base::readString(json, "summary").value_or(""),
                           stringList(json, "filesChanged")};
}

FixAnalysis decodeFixAnalysis(std::string_view answer) {
  return decodeAnswer<FixAnalysis>(answer, fixAnalysisFromJson);
}

FixImplementation decodeFixImplementation(std::string_view answer) {
  return decodeAnswer<FixImplementation>(answer, fixImplementationFromJson);
}

}  // namespace quillora::ai
