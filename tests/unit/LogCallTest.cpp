#include "client/LogCall.h"

#include "tests/unit/Choices.h"
#include "tests/unit/LogCallModel.h"

using Velk::LogCall;

TEST(LogCall, EndsEachLineOnce) {
  for (const char* text : {"", "x", "x\n", "x\ny\n\n"}) EXPECT_EQ(1u, CheckCalls(Info, "m", text));
  EXPECT_FALSE(LogCall(Info, std::string(800, 'm').c_str(), "x").IsValid());
  EXPECT_STREQ("LogMsg 1 `` `\n`", LogCall(Info, nullptr, nullptr).Next());
}

TEST(LogCall, CutsLongLinesBetweenCharacters) {
  const char* const kCharacters[] = {"a", "~", "`", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"};
  Choices choices = Choices::Random(1, 300000);
  while (choices.AreLeft() && !HasFailure()) {
    std::string text;
    for (size_t length = 1300 + choices.Below(3000); text.size() < length && choices.AreLeft();)
      text += kCharacters[choices.Below(6)];
    CheckCalls(Warning, "a~`b", text);
  }
  // Invalid UTF-8 may be cut anywhere but not lose a byte. No empty piece may follow three full ones.
  CheckCalls(Warning, "m", std::string(5000, '\x80'));
  const size_t room = LogCall::kMost - strlen("LogMsg 1 `m` `\n`");
  EXPECT_EQ(3u, CheckCalls(Info, "m", std::string(3 * room, 'x') + "\n"));
  EXPECT_EQ(4u, CheckCalls(Info, "m", std::string(3 * room + 1, 'x')));
}
