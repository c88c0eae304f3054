// Parameters and cookies as clients send them, good and broken, and their types.
#include <gtest/gtest.h>
#include <json/writer.h>

#include "webapi/request_state.h"

using oculora::MakeRequest;

namespace {

std::string Compact(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

TEST(ParameterTest, DefaultDecidesTheType) {
  const Json::Value null, text = "def", number = 7, real = 0.5, yes = true, no = false, natural = 7U;
  const struct {
    const char* sent;
    const Json::Value& defaultValue;
    const char* expected;  // as JSON
  } cases[] = {
      // texts stand as they are; only a whole JSON string is unquoted
      {"\"7:5\"", text, "\"7:5\""},
      {"7:5", text, "\"7:5\""},
      {"5", text, "\"5\""},
      {"1e5", text, "\"1e5\""},
      {"true", text, "\"true\""},
      {"null", text, "\"null\""},
      {"", text, "\"\""},
      {"\"\"", text, "\"\""},
      {"\"a\\\"b\"", text, "\"a\\\"b\""},
      {"\"open", text, "\"\\\"open\""},
      {"\"", text, "\"\\\"\""},
      {"\"a\" b", text, "\"\\\"a\\\" b\""},
      {"\"a\"b\"", text, "\"\\\"a\\\"b\\\"\""},
      {"{\"a\":1}", text, "\"{\\\"a\\\":1}\""},
      // integers
      {"5", number, "5"},
      {"-5", number, "-5"},
      {"5.0", number, "5"},
      {"1e5", number, "100000"},
      {"true", number, "1"},
      {"2147483647", number, "2147483647"},
      {"2147483648", number, "7"},
      {"-2147483649", number, "7"},
      {"99999999999999999999999", number, "7"},
      {"1e999", number, "7"},
      {"5.5", number, "7"},
      {"\"5\"", number, "7"},
      {"5x", number, "7"},
      {"5 6", number, "7"},
      {"0x10", number, "7"},
      {"007", number, "7"},
      {"+5", number, "7"},
      {"-", number, "7"},
      {"", number, "7"},
      {"nan", number, "7"},
      {"[5]", number, "7"},
      {"null", number, "7"},
      {"-1", natural, "7"},
      {"4294967295", natural, "4294967295"},
      {"4294967296", natural, "7"},
      // reals and booleans
      {"1e2", real, "100.0"},
      {"3", real, "3.0"},
      {"x", real, "0.5"},
      {"true", no, "true"},
      {"1", no, "true"},
      {"0", yes, "false"},
      {"2", no, "true"},
      {"0.5", no, "true"},
      {"false", yes, "false"},
      {"\"true\"", no, "false"},
      {"True", no, "false"},
      {"yes", no, "false"},
      {"", yes, "true"},
      // anything goes with null
      {"{\"a\":[1,2]}", null, "{\"a\":[1,2]}"},
      {"5", null, "5"},
      {"\"x\"", null, "\"x\""},
      {"plain", null, "\"plain\""},
      {"{\"a\":", null, "\"{\\\"a\\\":\""},
  };
  for (const auto& test : cases) {
    std::string query = "p=";
    for (const char* c = test.sent; *c != 0; ++c) {
      char code[4];
      snprintf(code, sizeof(code), "%%%02x", static_cast<unsigned char>(*c));
      query += code;
    }
    const Json::Value value = MakeRequest({query, "", "", {}})->GetParam("p", test.defaultValue);
    EXPECT_EQ(Compact(value), test.expected) << test.sent << " with default " << Compact(test.defaultValue);
  }
}

TEST(ParameterTest, NestingThatWouldEatTheStackIsText) {
  const std::string deep(100000, '[');
  EXPECT_TRUE(MakeRequest({"p=" + deep, "", "", {}})->GetParam("p", Json::Value()).isString());
}

TEST(ParameterTest, WhateverIsSentIsReadWithoutHarm) {
  const struct {
    const char* name;
    const char* query;
    const char* body;
    const char* expected;  // of the parameter "a"; "-": absent
  } cases[] = {
      {"plain", "a=1", "", "1"},
      {"body", "", "a=1", "1"},
      {"query before body", "a=1", "a=2", "1"},
      {"first of two", "a=1&a=2", "", "1"},
      {"decoded", "a=%41%2b+x", "", "A+ x"},
      {"name decoded", "%61=1", "", "1"},
      {"lower case is another name", "A=1", "", "-"},
      {"lone percent at the end", "a=x%", "", "x%"},
      {"half a code at the end", "a=x%4", "", "x%4"},
      {"code with wrong digits", "a=%zz%4g%g4", "", "%zz%4g%g4"},
      {"percent before a code", "a=%%41", "", "%A"},
      {"half a code before the next pair", "a=%4&b=1", "", "%4"},
      {"code across the end of the query", "a=%4", "1=x", "%4"},
      {"no equals sign", "a", "", ""},
      {"last without equals sign", "b=1&a", "", ""},
      {"equals signs inside", "a=b=c", "", "b=c"},
      {"only separators", "&&&=&&", "", "-"},
      {"empty name", "=x&a=1", "", "1"},
      {"line ends stay data", "a=%0d%0aX", "", "\r\nX"},
      {"bytes that are no UTF-8", "a=%ff%fe", "", "\xff\xfe"},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(MakeRequest({test.query, test.body, "", {}})->GetParam("a", "-").asString(), test.expected) << test.name;
  }
  EXPECT_EQ(MakeRequest({"a=x%00y", "", "", {}})->GetParam("a", "").asString(), std::string("x\0y", 3));
}

TEST(ParameterTest, TooManyParametersAreAnErrorAndHugeOnesAreNot) {
  std::string many;
  for (int i = 0; i < 200; ++i) many += "p" + std::to_string(i) + "=" + std::to_string(i) + "&";
  const auto full = MakeRequest({many, "", "", {}});
  EXPECT_EQ(full->state().InputError(), "");
  EXPECT_EQ(full->GetParam("p199", 0).asInt(), 199);
  const auto over = MakeRequest({many, "one=more", "", {}});
  EXPECT_NE(over->state().InputError(), "");
  EXPECT_EQ(over->GetParam("p1", 0).asInt(), 0);
  EXPECT_EQ(MakeRequest({std::string(100000, '&'), "", "", {}})->state().InputError(), "");

  const std::string huge(1 << 20, 'x');
  EXPECT_EQ(MakeRequest({"", "a=" + huge, "", {}})->GetParam("a", "").asString().size(), huge.size());
}

TEST(CookieTest, BrokenHeadersGiveWhatCanBeRead) {
  const struct {
    const char* header;
    const char* expected;  // of the cookie "c"; "-": absent
  } cases[] = {
      {"c=1", "1"},      {"b=2; c=1", "1"}, {"b=2;c=1", "1"},  {"c=1; c=2", "1"},  {"c=a%20b", "a b"},
      {"c=a+b", "a+b"},  {"c=%", "%"},      {"c=%4", "%4"},    {"c=x%zz", "x%zz"}, {"c", "-"},
      {"c; b=1", "-"},   {"=1; c=2", "2"},  {";;;c=1;;", "1"}, {"c=", ""},         {"C=1", "-"},
      {"  c = 1 ", "1"}, {"c=a=b", "a=b"},  {"", "-"},         {"bc=1", "-"},      {"c=\"q\"", "\"q\""},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(MakeRequest({"", "", test.header, {}})->GetCookie("c", "-"), test.expected) << test.header;
  }
}

}  // namespace
