#include <gtest/gtest.h>

#include "ai/ai_error.h"
#include "ai/analysis_schema.h"
#include "base/strings.h"

namespace quillora::ai {
namespace {

std::vector<std::string> requiredOf(const base::Json& schema) {
  return schema.at("required").get<std::vector<std::string>>();
}

TEST(AnalysisSchema, AnswerSchemaIsValidJsonWithTheRequiredKeysInOrder) {
  auto schema = base::parseJson(fixAnalysisSchema());
  ASSERT_TRUE(schema);
  EXPECT_EQ(requiredOf(*schema),
            (std::vector<std::string>{"title", "severity", "confidence", "rootCause", "rootCauseCode",
                                      "fixSummary", "codeChanges", "reproSteps", "affectedFiles",
                                      "patch", "testSuggestions"}));
  EXPECT_EQ((*schema)["additionalProperties"], false);
  const auto& excerpt = (*schema)["properties"]["rootCauseCode"]["items"];
  EXPECT_EQ(excerpt["additionalProperties"], false);
  EXPECT_EQ(requiredOf(excerpt), (std::vector<std::string>{"file", "line", "language", "code",
                                                           "crashLine", "explanation"}));
  EXPECT_EQ(excerpt["properties"]["line"]["type"], "integer");
  const auto& change = (*schema)["properties"]["codeChanges"]["items"];
  EXPECT_EQ(requiredOf(change), (std::vector<std::string>{"file", "line", "language", "explanation",
                                                          "before", "after"}));
  EXPECT_EQ((*schema)["properties"]["severity"]["enum"],
            base::Json({"critical", "high", "medium", "low"}));
  EXPECT_FALSE((*schema)["properties"]["severity"].contains("description"));
  EXPECT_EQ((*schema)["properties"]["patch"]["description"],
            "Unified diff (git apply format, a/ b/ prefixes, repo-relative paths). Empty string if "
            "no code was available.");
}

TEST(AnalysisSchema, AnswerSchemaTextKeepsItsLayout) {
  std::string_view text = fixAnalysisSchema();
  auto lines = base::splitLines(text);
  ASSERT_GT(lines.size(), 6u);
  EXPECT_EQ(lines[0], "{");
  EXPECT_EQ(lines[1], "  \"type\": \"object\",");
  EXPECT_EQ(lines[3], "  \"required\": [\"title\", \"severity\", \"confidence\", \"rootCause\", "
                      "\"rootCauseCode\", \"fixSummary\",");
  EXPECT_EQ(lines[4].substr(0, 19), "    \"codeChanges\", ");
  // Properties appear in the answer's reading order, one per line.
  std::vector<std::string> order = {"title", "severity", "confidence", "rootCause", "rootCauseCode",
                                    "fixSummary", "codeChanges", "reproSteps", "affectedFiles",
                                    "patch", "testSuggestions"};
  size_t last = text.find("\"properties\"");
  for (const auto& key : order) {
    size_t at = text.find("\n    \"" + key + "\": {", last);
    ASSERT_NE(at, std::string_view::npos) << key;
    last = at;
  }
  for (auto line : lines) {
    size_t indent = line.find_first_not_of(' ');
    EXPECT_EQ(indent % 2, 0u) << line;
  }
}

TEST(AnalysisSchema, ImplementSchemaNeedsSummaryAndFiles) {
  auto schema = base::parseJson(fixImplementationSchema());
  ASSERT_TRUE(schema);
  EXPECT_EQ(requiredOf(*schema), (std::vector<std::string>{"summary", "filesChanged"}));
  EXPECT_EQ((*schema)["properties"]["summary"]["description"], "What you changed, in 1-3 sentences.");
  EXPECT_EQ((*schema)["properties"]["filesChanged"]["items"]["type"], "string");
}

TEST(AnalysisSchema, InsertionReplacesTheQuotedPlaceholderWithTheSchemaAsItStands) {
  base::Json body = {{"model", "claude-opus-5-5"},
                     {"output_format", {{"type", "json_schema"}, {"schema", "__QUILLORA_SCHEMA__"}}}};
  std::string schema = "{\"z\": 1,\n  \"a\": [\"__QUILLORA_SCHEMA__\"]}";
  EXPECT_EQ(insertSchema(body, schema),
            "{\"model\":\"claude-opus-5-5\",\"output_format\":{\"schema\":{\"z\": 1,\n  \"a\": "
            "[\"__QUILLORA_SCHEMA__\"]},\"type\":\"json_schema\"}}");
  std::string sent = insertSchema(body, fixAnalysisSchema());
  EXPECT_NE(sent.find(std::string(fixAnalysisSchema())), std::string::npos);
  EXPECT_TRUE(base::parseJson(sent));
}

TEST(AnalysisSchema, AnInvalidSchemaFailsBeforeSending) {
  base::Json body = {{"schema", "__QUILLORA_SCHEMA__"}};
  for (std::string_view bad : {"", "{\"type\": ", "not json"}) {
    try {
      insertSchema(body, bad);
      ADD_FAILURE() << "accepted " << bad;
    } catch (const AIError& e) {
      EXPECT_STREQ(e.what(), "The JSON schema for this request isn't valid JSON.");
      EXPECT_EQ(e.errorCase(), AIError::Case::failed);
    }
  }
}

}  // namespace
}  // namespace quillora::ai
