// The small helpers every store and report relies on: JSON conventions, regex, Unicode, time.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "base/json.h"
#include "base/regex.h"
#include "base/strings.h"
#include "base/text.h"
#include "base/time.h"

namespace quillora::base {
namespace {

TEST(Json, WritesSortedKeysUnescapedSlashesAndNonFiniteNumbersAsText) {
  Json doc = {{"zeta", 1}, {"alpha", "a/b"}, {"nan", jsonNumber(std::nan(""))},
              {"inf", jsonNumber(std::numeric_limits<double>::infinity())},
              {"minusInf", jsonNumber(-std::numeric_limits<double>::infinity())},
              {"none", orNull(std::optional<std::string>())}};
  EXPECT_EQ(dumpJson(doc),
            "{\n  \"alpha\": \"a/b\",\n  \"inf\": \"inf\",\n  \"minusInf\": \"-inf\",\n"
            "  \"nan\": \"nan\",\n  \"none\": null,\n  \"zeta\": 1\n}");
}

TEST(Json, InvalidUTF8IsReplacedNotThrown) {
  Json doc = std::string("bad \xff byte");
  EXPECT_EQ(dumpJson(doc), "\"bad \xEF\xBF\xBD byte\"");
}

TEST(Json, LenientReadersAcceptNumbersAsTextAndTextAsNumbers) {
  Json o = {{"n", 42}, {"s", "17"}, {"f", 2.5}, {"b", "yes"}, {"null", nullptr}, {"list", {1}}};
  EXPECT_EQ(readString(o, "n"), "42");
  EXPECT_EQ(readInteger(o, "s"), 17);
  EXPECT_EQ(readInteger(o, "f"), std::nullopt);
  EXPECT_EQ(readDouble(o, "s"), 17.0);
  EXPECT_EQ(readBool(o, "b"), true);
  EXPECT_EQ(readString(o, "null"), std::nullopt);
  EXPECT_EQ(readString(o, "list"), std::nullopt);
  EXPECT_EQ(readString(Json::array(), "n"), std::nullopt);
  std::string error;
  EXPECT_FALSE(parseJson("{\"a\": ", &error));
  EXPECT_EQ(error.find("[json.exception"), std::string::npos) << error;
  EXPECT_FALSE(error.empty());
}

TEST(Regex, CapturesNamedGroupsAndLookAhead) {
  Regex r(R"((?<cls>[\w.]+)\.(?<method>\w+)(?=\s*\())");
  auto m = r.search("at Game.Player.Update () [0x0001]");
  ASSERT_TRUE(m);
  EXPECT_EQ(m->group("cls"), "Game.Player");
  EXPECT_EQ(m->group("method"), "Update");
  EXPECT_EQ(m->group("missing"), "");
  EXPECT_FALSE(Regex("^b$", {.multiline = false}).test("a\nb"));
  EXPECT_TRUE(Regex("^b$", {.multiline = true}).test("a\nb"));
  EXPECT_TRUE(Regex("null", {.caseless = true}).test("NULL"));
}

TEST(Regex, SurvivesInvalidUTF8AndEmptyMatches) {
  Regex r("x*");
  EXPECT_EQ(r.searchAll("a\xffx").size(), 4u);  // "", "", "x", "" at the end
  EXPECT_EQ(Regex("0x[0-9a-f]+").replaceAll("at 0x1f and 0xab\xfe", "ADDR"), "at ADDR and ADDR\xfe");
  EXPECT_EQ(Regex(R"((\w+)@(\w+))").replaceAll("me@host", "$2/${1}$$"), "host/me$");
  EXPECT_FALSE(Regex("abc").fullMatch("abcd"));
  EXPECT_TRUE(Regex("abc").fullMatch("abc"));
  EXPECT_THROW(Regex("(unclosed"), std::logic_error);
}

TEST(Text, CountsUserPerceivedCharacters) {
  EXPECT_EQ(graphemeCount("abc"), 3u);
  EXPECT_EQ(graphemeCount("e\xCC\x81"), 1u);                      // e + combining acute
  EXPECT_EQ(graphemeCount("\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD"), 1u);  // thumbs up + skin tone
  EXPECT_EQ(graphemeCount("a\xff" "b"), 3u);
  EXPECT_EQ(prefixGraphemes("he\xCC\x81llo", 2), "he\xCC\x81");
  EXPECT_EQ(prefixGraphemes("abc", 10), "abc");
  EXPECT_EQ(prefixGraphemes("abc", 0), "");
}

TEST(Text, FoldsCaseAndDiacritics) {
  EXPECT_EQ(foldCaseAndDiacritics("Café Ünïcode ÅNGSTRÖM"), "cafe unicode angstrom");
  EXPECT_EQ(foldCaseAndDiacritics("bad\xff"), "bad");
  EXPECT_EQ(sanitizeUTF8("ok\xc3"), "ok\xEF\xBF\xBD");
  EXPECT_TRUE(isValidUTF8("ü"));
  EXPECT_FALSE(isValidUTF8("\xc3"));
}

TEST(Time, ISO8601RoundTripsAndAcceptsOffsets) {
  auto t = parseISO8601("2026-11-22T09:30:00Z");
  ASSERT_TRUE(t);
  EXPECT_EQ(formatISO8601(*t), "2026-11-22T09:30:00Z");
  EXPECT_EQ(formatISO8601(*parseISO8601("2026-11-22T10:30:00+01:00")), "2026-11-22T09:30:00Z");
  EXPECT_EQ(formatISO8601(*parseISO8601("2026-11-22T09:30:00.75Z")), "2026-11-22T09:30:00Z");
  EXPECT_FALSE(parseISO8601("2026-13-01T00:00:00Z"));
  EXPECT_FALSE(parseISO8601("yesterday"));
}

TEST(Time, DurationsUseSecondsBelowAMinuteAndMinutesFromOne) {
  EXPECT_EQ(formatDuration(0.04), "0.0 s");
  EXPECT_EQ(formatDuration(12.34), "12.3 s");
  EXPECT_EQ(formatDuration(60), "1 min 00 s");
  EXPECT_EQ(formatDuration(125.9), "2 min 05 s");
}

TEST(Strings, ParsesOnlyWholeNumbers) {
  EXPECT_EQ(parseInteger("42"), 42);
  EXPECT_EQ(parseInteger("-3"), -3);
  EXPECT_EQ(parseInteger("+7"), 7);
  EXPECT_EQ(parseInteger("4.0"), std::nullopt);
  EXPECT_EQ(parseInteger(""), std::nullopt);
  EXPECT_EQ(parseInteger("12abc"), std::nullopt);
  EXPECT_EQ(parseDouble("nan"), std::nullopt);
  EXPECT_EQ(formatFixed(1234.5678, 2), "1234.57");
  EXPECT_EQ(splitLines("a\r\nb\n\nc\n").size(), 4u);
}

}  // namespace
}  // namespace quillora::base
