#include "client/HeldLines.h"

#include "tests/unit/Test.h"

TEST(HeldLines, AgreesWithADeque) {
  std::mt19937 random(3);
  Velk::HeldLines lines;
  EXPECT_FALSE(lines.Append("x", 1));
  ASSERT_TRUE(lines.Open(20));  // rounded up to 32, of 256 bytes on average
  std::deque<std::string> model;
  size_t refused = 0;
  for (int step = 0; step < 100000; ++step) {
    if (random() % 100 < (step / 1000 % 2 == 0 ? 60 : 40)) {
      const std::string text(random() % (random() % 8 == 0 ? 1400 : 300), static_cast<char>(random()));
      size_t held = 0;
      for (const std::string& each : model) held += each.size() + 1;
      if (lines.Append(text.data(), static_cast<unsigned>(text.size()))) {
        model.push_back(text);
      } else {
        ++refused;
        // No text is split: the gap at the end of the memory is smaller than the longest text.
        ASSERT_TRUE(model.size() == 32 || held + text.size() + 1 > 32 * 256 - 1401) << held;
      }
    } else if (!model.empty()) {
      lines.RemoveFirst();
      model.pop_front();
    }
    ASSERT_LE(model.size(), 32u);
    ASSERT_EQ(model.size(), lines.End() - lines.First());
    for (size_t i = 0; i < model.size(); ++i) {
      const uint32_t number = lines.First() + static_cast<uint32_t>(i);
      ASSERT_EQ(model[i], std::string(lines.Text(number), lines.At(number).length));
      ASSERT_EQ('\0', lines.Text(number)[model[i].size()]);
    }
  }
  EXPECT_GT(refused, 1000u);
}
