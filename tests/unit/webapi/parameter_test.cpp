// Parameters and cookies as clients send them, good and broken, and as this host sends them to others.
#include <gtest/gtest.h>

#include "velm/relay.h"
#include "webapi/request_state.h"

using oculora::MakeRequest;

namespace {

// What a handler gets that asks with this default.
Json::Value Read(const std::string& sent, const Json::Value& defaultValue) {
  std::string query = "p=";
  for (const char c : sent) {
    char code[4];
    snprintf(code, sizeof(code), "%%%02x", static_cast<unsigned char>(c));
    query += code;
  }
  return MakeRequest({query, "", "", {}})->GetParam("p", defaultValue);
}

TEST(ParameterTest, TextsStandAsTheyAreButAWholeJsonStringIsUnquoted) {
  for (const char* text : {"7:5", "5", "1e5", "true", "null", "", "\"open", "\"", "\"a\" b", "\"a\"b\"", "{\"a\":1}"}) {
    EXPECT_EQ(Read(text, "default"), text);
  }
  EXPECT_EQ(Read("\"7:5\"", "default"), "7:5");
  EXPECT_EQ(Read("\"a\\\"b\"", "default"), "a\"b");
}

TEST(ParameterTest, DefaultDecidesTheType) {
  for (const char* none : {"2147483648", "-2147483649", "99999999999999999999999", "1e999", "5.5", "\"5\"", "5x", "5 6",
                           "0x10", "007", "+5", "-", "", "nan", "[5]", "null"}) {
    EXPECT_EQ(Read(none, 7), 7) << none;
  }
  // The default, and with it what is sent and what is read.
  const std::pair<Json::Value, std::vector<std::pair<const char*, Json::Value>>> cases[] = {
      {7, {{"5", 5}, {"-5", -5}, {"5.0", 5}, {"1e5", 100000}, {"true", 1}, {"2147483647", 2147483647}}},
      {7U, {{"-1", 7U}, {"4294967295", 4294967295U}, {"4294967296", 7U}}},
      {0.5, {{"1e2", 100.0}, {"3", 3.0}, {"x", 0.5}}},
      {true, {{"0", false}, {"false", false}, {"", true}}},
      {false, {{"true", true}, {"1", true}, {"2", true}, {"0.5", true}, {"\"true\"", false}, {"yes", false}}},
      {{}, {{"5", 5}, {"\"x\"", "x"}, {"plain", "plain"}, {"{\"a\":", "{\"a\":"}}},
  };
  for (const auto& [defaultValue, reads] : cases) {
    for (const auto& [sent, read] : reads) EXPECT_EQ(Read(sent, defaultValue), read) << sent;
  }
  EXPECT_EQ(Read("{\"a\":[1,2]}", {})["a"][1], 2);
  EXPECT_TRUE(Read(std::string(100000, '['), {}).isString()) << "nesting that would eat the stack is text";
}

TEST(ParameterTest, WhateverIsSentIsReadWithoutHarm) {
  const auto read = [](const std::string& query, const std::string& body) {
    return MakeRequest({query, body, "", {}})->GetParam("a", "-").asString();
  };
  // What is read, and the texts of which it is read.
  const std::pair<const char*, std::vector<const char*>> cases[] = {
      {"1", {"a=1&a=2", "%61=1", "=x&a=1", "a=1&", "&a=1"}},
      {"-", {"A=1", "&&&=&&", ""}},
      {"x%4", {"a=x%4"}},
      {"A+ x", {"a=%41%2b+x"}},
      {"%A", {"a=%%41"}},
      {"", {"a", "b=1&a"}},
      {"%4", {"a=%4&b=1"}},
      {"%zz%4g%g4", {"a=%zz%4g%g4"}},
      {"b=c", {"a=b=c"}},
      {"\r\nX", {"a=%0d%0aX"}},
      {"\xff\xfe", {"a=%ff%fe"}}};
  for (const auto& [expected, texts] : cases) {
    for (const char* text : texts) {
      EXPECT_EQ(read(text, ""), expected) << text;
      EXPECT_EQ(read("", text), expected) << text << " as a body";
    }
  }
  EXPECT_EQ(read("a=1", "a=2"), "1");
  EXPECT_EQ(read("a=%4", "1=x"), "%4");
  EXPECT_EQ(read("a=x%00y", ""), std::string("x\0y", 3));

  std::string most;  // parameters
  for (int i = 0; i < 199; ++i) most += "p&&";
  EXPECT_EQ(read(most, "a=1"), "1");
  EXPECT_EQ(read("a=1&" + most, "one=more"), "-");
}

TEST(CookieTest, BrokenHeadersGiveWhatCanBeRead) {
  const std::pair<const char*, const char*> cases[] = {
      {"b=2;c=1", "1"}, {"c=1; c=2", "1"}, {"c=a%20b", "a b"},  {"c=a+b", "a+b"}, {"c=%4", "%4"},
      {"c; b=1", "-"},  {";;;c=1;;", "1"}, {"c=", ""},          {"C=1", "-"},     {"  c = 1 ", "1"},
      {"c=a=b", "a=b"}, {"bc=1", "-"},     {"c=\"q\"", "\"q\""}};
  for (const auto& [header, expected] : cases) {
    EXPECT_EQ(MakeRequest({"", "", header, {}})->GetCookie("c", "-"), expected) << header;
  }
}

TEST(RelayTextTest, ValuesAreEncodedAndOnlyKnownKeysTravel) {
  Json::Value call;
  call["cameraId"] = 5;
  call["useHttps"] = true;
  call["SliceId"] = "5/1.ts&isRedirectCgi=1 \xc3\xa4%+";
  call["HostIp"] = Json::Value();
  call["client"] = "NVR";
  EXPECT_EQ(JsonToStrPair(call, true, true),
            "SliceId=5%2F1.ts%26isRedirectCgi%3D1%20%C3%A4%25%2B&cameraId=5&useHttps=true");
  EXPECT_EQ(JsonToStrPair(call, false, false).substr(0, 18), "HostIp=&SliceId=5/");
  for (const Json::Value& none : {Json::Value(), Json::Value("a")}) EXPECT_EQ(JsonToStrPair(none, true, true), "");

  std::string everything;
  for (int c = 1; c < 256; ++c) everything.push_back(static_cast<char>(c));
  call["SliceId"] = everything;
  EXPECT_EQ(MakeRequest({JsonToStrPair(call, true, true), "", "", {}})->GetParam("SliceId", ""), everything);
}

}  // namespace
