#include "common/LogCall.h"

#include <gtest/gtest.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "common/ArgsParser.h"

using Velk::LogCall;

namespace {

// The texts that the service logs for a line, and a check of all else in the calls.
std::vector<std::string> Pieces(const std::string& text) {
  std::vector<std::string> pieces;
  LogCall line(Warning, "a~`b", text.c_str());
  EXPECT_TRUE(line.IsValid());
  while (const char* call = line.Next()) {
    EXPECT_LE(strlen(call), LogCall::kMost);
    Velk::ArgsParser parser(4);
    EXPECT_TRUE(parser.ParseArgs(call));
    EXPECT_EQ(4u, parser.GetArgs()->GetCount());
    EXPECT_STREQ("LogMsg", parser.GetArgs()->GetItem(0)->AsStr());
    EXPECT_EQ(2, parser.GetArgs()->GetItem(1)->AsInt());
    EXPECT_STREQ("a~`b", parser.GetArgs()->GetItem(2)->AsStr());
    pieces.push_back(parser.GetArgs()->GetItem(3)->AsStr());
  }
  return pieces;
}

}  // namespace

TEST(LogCall, EndsEachLineOnce) {
  EXPECT_EQ((std::vector<std::string>{"\n"}), Pieces(""));
  EXPECT_EQ((std::vector<std::string>{"x\n"}), Pieces("x"));
  EXPECT_EQ((std::vector<std::string>{"x\n"}), Pieces("x\n"));
  EXPECT_EQ((std::vector<std::string>{"x\ny\n\n"}), Pieces("x\ny\n\n"));
  EXPECT_FALSE(LogCall(Info, std::string(800, 'm').c_str(), "x").IsValid());
  EXPECT_STREQ("LogMsg 1 `` `\n`", LogCall(Info, nullptr, nullptr).Next());
}

TEST(LogCall, CutsLongLinesBetweenCharacters) {
  std::mt19937 random(1);
  const std::string alphabet[] = {"a", "~", "`", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"};
  for (unsigned round = 0; round < 300; ++round) {
    std::string text;
    const size_t length = 1300 + random() % 3000;
    while (text.size() < length) text += alphabet[random() % std::size(alphabet)];
    std::string joined;
    for (const std::string& piece : Pieces(text)) {
      EXPECT_EQ('\n', piece.back());
      EXPECT_NE('\x80', piece.front() & '\xC0');
      joined += piece.substr(0, piece.size() - 1);
    }
    ASSERT_EQ(text, joined);
  }
  // What is no UTF-8 is cut anywhere, but all of it arrives; a full last piece has no empty one behind it.
  const std::string rubbish(5000, '\x80');
  std::string joined;
  for (const std::string& piece : Pieces(rubbish)) joined += piece.substr(0, piece.size() - 1);
  EXPECT_EQ(rubbish, joined);
  const size_t room = Pieces(std::string(3000, 'x'))[0].size() - 1;
  EXPECT_EQ(1u, Pieces(std::string(room, 'x') + "\n").size());
  EXPECT_EQ(2u, Pieces(std::string(room + 1, 'x')).size());
}
