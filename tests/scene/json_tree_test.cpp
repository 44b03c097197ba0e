#include "scene/json_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;
using testing::ElementsAre;

namespace {

std::vector<std::string> Problems(const std::string& text) {
  JsonValue root;
  Diagnostics diagnostics;
  const bool parsed = ParseJson(text, "f", root, diagnostics);
  EXPECT_TRUE(parsed || diagnostics.HasErrors()) << text;
  return diagnostics.Lines();
}

}  // namespace

TEST(JsonTree, KnowsThePlaceOfEveryKeyAndValue) {
  const std::string text =
      "\xEF\xBB\xBF// head\n"
      "{ \"a\" : /* , : \" */ -1.5e2,\n"
      "\t\"\xC3\xA4\\\"\\\\\":[true ,null,\"//\"]\n"
      ",\"c\":{\"d\":{}}}";
  JsonValue root;
  Diagnostics diagnostics;
  ASSERT_TRUE(ParseJson(text, "f", root, diagnostics));
  const JsonValue::Object& members = *root.Members();
  ASSERT_EQ(members.size(), 3u);
  EXPECT_EQ(std::pair(root.line, root.column), std::pair(2u, 1u));
  EXPECT_EQ(std::pair(members[0].line, members[0].column), std::pair(2u, 3u));
  EXPECT_EQ(std::pair(members[0].value.line, members[0].value.column), std::pair(2u, 21u));
  EXPECT_EQ(*members[0].value.Number(), -150.0);
  EXPECT_EQ(members[1].key, "\xC3\xA4\"\\");
  EXPECT_EQ(std::pair(members[1].line, members[1].column), std::pair(3u, 2u));
  const JsonValue::Array& items = *members[1].value.Items();
  ASSERT_EQ(items.size(), 3u);
  EXPECT_EQ(items[0].column, 11u);
  EXPECT_EQ(items[1].column, 17u);
  EXPECT_EQ(items[2].column, 22u);
  EXPECT_EQ(*items[2].Text(), "//");
  const JsonValue& inner = *members[2].value.Find("d");
  EXPECT_EQ(std::pair(inner.line, inner.column), std::pair(4u, 11u));
}

TEST(JsonTree, AllRepeatedKeysAreToldAndTheFirstStands) {
  JsonValue root;
  Diagnostics diagnostics;
  ASSERT_TRUE(ParseJson("{\"a\": 1,\n\"a\": {\"b\": 2, \"b\": 3},\n\"c\": 4, \"a\": 5}", "f", root,
                        diagnostics));
  EXPECT_EQ(diagnostics.Messages().size(), 3u);
  EXPECT_EQ(root.Members()->size(), 2u);
  EXPECT_EQ(*root.Find("a")->Number(), 1);
  EXPECT_EQ(*root.Find("c")->Number(), 4);
}

TEST(JsonTree, NestingEndsAtTheLimit) {
  const auto nested = [](std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  EXPECT_TRUE(Problems(nested(kMaxJsonDepth)).empty());
  EXPECT_THAT(Problems(nested(kMaxJsonDepth + 1)),
              ElementsAre("f:1:129: error: lists and objects are nested more than 128 deep"));
  EXPECT_EQ(Problems(nested(1000000)).size(), 1u);
}

TEST(JsonTree, MalformedUtf8IsRefusedAtItsPlace) {
  // Overlong forms, a surrogate, beyond the last code point, a cut sequence, a lone continuation.
  for (const char* bad : {"\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                          "\xF0\x9F\x98", "\x80", "\xFE"})
    EXPECT_THAT(Problems("[1,\n \"" + std::string(bad) + "\"]"),
                ElementsAre("f:2:3: error: the text isn't UTF-8"));
  EXPECT_TRUE(Problems("[\"\xF0\x9F\x98\x80\xEF\xBF\xBD\"]").empty());
}

// Any bytes at all must end in a tree or in messages, within the text.
TEST(JsonTree, MutatedTextNeverBreaksTheParser) {
  const std::string whole =
      "{ // comment\n \"k\\u00e4\": [1, -2.5e3, true, null, \"t\\n\"], /* c */ \"o\": {\"x\": "
      "{}} }\n";
  std::mt19937 random(7);
  const std::string alphabet = "{}[]\",:/*\\\n u0eE+-.1tfn\x80\xC3\xFF";
  for (int round = 0; round < 20000; ++round) {
    std::string text = whole;
    for (int edits = 1 + random() % 4; edits > 0; --edits) {
      const std::size_t at = random() % text.size();
      switch (random() % 4) {
        case 0: text[at] = alphabet[random() % alphabet.size()]; break;
        case 1: text.insert(at, 1, alphabet[random() % alphabet.size()]); break;
        case 2: text.erase(at, 1 + random() % 3); break;
        default: text.resize(at + 1); break;
      }
      if (text.empty()) text = "{";
    }
    JsonValue root;
    Diagnostics diagnostics;
    const bool parsed = ParseJson(text, "f", root, diagnostics);
    ASSERT_TRUE(parsed || diagnostics.Messages().size() == 1) << text;
    const auto lines = 1 + std::count(text.begin(), text.end(), '\n');
    for (const Message& message : diagnostics.Messages()) {
      ASSERT_GE(message.where.line, 1u) << text;
      ASSERT_LE(message.where.line, lines) << text;
      ASSERT_GE(message.where.column, 1u) << text;
      ASSERT_LE(message.where.column, text.size() + 1) << text;
    }
  }
}

TEST(NearestName, FindsSlipsAndParts) {
  const std::vector<std::string_view> names = {"volume", "value", "cell_size", "force_buoyancy",
                                               "fluid"};
  EXPECT_EQ(NearestName("volme", names), "volume");
  EXPECT_EQ(NearestName("vloume", names), "volume");
  EXPECT_EQ(NearestName("Cell-Size", names), "cell_size");
  EXPECT_EQ(NearestName("buoyancy", names), "force_buoyancy");
  EXPECT_EQ(NearestName("temperature", names), "");
  EXPECT_EQ(NearestName("", names), "");
  EXPECT_EQ(NearestName(std::string(100000, 'v'), names), "");
}
