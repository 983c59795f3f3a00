#include <gtest/gtest.h>

#include "ai/analysis_schema.h"
#include "base/json.h"

namespace quillora::ai {
namespace {

// Strict structured output rejects a schema with an open object or an optional property; the
// answer comes back (and its progress is announced) in the order the properties are listed.
void expectClosedAndComplete(const nlohmann::ordered_json& node, const std::string& where) {
  if (node.is_object() && node.contains("properties")) {
    EXPECT_EQ(node.value("additionalProperties", true), false) << where;
    std::vector<std::string> listed;
    for (const auto& property : node["properties"].items()) listed.push_back(property.key());
    EXPECT_EQ(node.value("required", std::vector<std::string>{}), listed) << where;
  }
  if (node.is_structured()) {
    for (const auto& child : node.items()) expectClosedAndComplete(child.value(), where + "/" + child.key());
  }
}

TEST(AnalysisSchema, BothSchemasAreValidJsonWithEveryObjectClosedAndEveryPropertyRequired) {
  for (std::string_view schema : {fixAnalysisSchema(), fixImplementationSchema()}) {
    auto parsed = nlohmann::ordered_json::parse(schema, nullptr, false);
    ASSERT_FALSE(parsed.is_discarded()) << schema;
    EXPECT_EQ(parsed["type"], "object");
    expectClosedAndComplete(parsed, "");
  }
}

TEST(AnalysisSchema, InsertionReplacesTheQuotedPlaceholderWithTheSchemaAsItStands) {
  base::Json body = {{"model", "claude-opus-5-5"},
                     {"output_format", {{"type", "json_schema"}, {"schema", "__QUILLORA_SCHEMA__"}}}};
  std::string schema = "{\"z\": 1,\n  \"a\": [\"__QUILLORA_SCHEMA__\"]}";
  EXPECT_EQ(insertSchema(body, schema),
            "{\"model\":\"claude-opus-5-5\",\"output_format\":{\"schema\":{\"z\": 1,\n  \"a\": "
            "[\"__QUILLORA_SCHEMA__\"]},\"type\":\"json_schema\"}}");
}

}  // namespace
}  // namespace quillora::ai
