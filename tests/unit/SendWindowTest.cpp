#include "client/SendWindow.h"

#include "tests/unit/WindowModel.h"

using Velk::SendWindow;

namespace {

constexpr uint64_t kMs = 1000;

// Sends all that may be sent now. Returns the calls, without "WithAck" and the client's name.
Lines SendAll(SendWindow& window, uint64_t nowUs) {
  Lines sent;
  for (SendWindow::Piece piece; window.Next(&piece); window.Sent(nowUs)) {
    const std::string head(piece.head, piece.headLength);
    sent.push_back((head.empty() ? head : head.substr(8 + SendWindow::kNameLength + 1)) +
                   std::string(piece.text, piece.length));
  }
  return sent;
}

struct SendWindowTest : testing::Test {
  SendWindowTest() { EXPECT_TRUE(window.Open(100, 1)); }

  void Append(unsigned count) {
    for (unsigned i = 0; i < count; ++i) window.Append("x", 1);
  }
  std::string Name() {
    const SendWindow::Piece piece = window.Probe();
    return std::string(piece.head + 8, SendWindow::kNameLength);
  }
  bool Answer(unsigned last, unsigned asked, unsigned refused = 0, uint64_t nowUs = 0) {
    const std::string text = "Ack " + Name() + ' ' + std::to_string(last) + ' ' + std::to_string(asked) +
                             ' ' + std::to_string(refused);
    return window.TakeAnswer(text.c_str(), nowUs);
  }
  // Makes the name known: one call is acknowledged.
  void Begin() {
    Append(1);
    SendAll(window, 0);
    Answer(1, 1);
  }

  SendWindow window;
};

}  // namespace

TEST(SendWindow, RunsEachCallInOrderOverALossyNetwork) {
  for (unsigned seed = 0; seed < 100 && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    WindowModel(Choices::Random(seed, 20000)).Run();
  }
}

TEST_F(SendWindowTest, RetransmitsOnceForAGapThenOnlyAfterSilence) {
  Begin();
  Append(4);
  EXPECT_EQ(4u, SendAll(window, 0).size());
  Answer(2, 2);
  Answer(2, 4);
  EXPECT_EQ((Lines{"3 x", "4 x", "5 x"}), SendAll(window, 10 * kMs));
  Answer(2, 5);
  Answer(1, 2);  // overtaken
  EXPECT_EQ(Lines{}, SendAll(window, 11 * kMs));
  uint64_t now = window.DueUs();
  window.OnSilence(now);
  EXPECT_EQ((Lines{"3 x", "4 x", "5 x"}), SendAll(window, now));
  const uint64_t firstWait = window.DueUs() - now;
  window.OnSilence(now = window.DueUs());
  SendAll(window, now);
  EXPECT_EQ(2 * firstWait, window.DueUs() - now);
  for (int i = 0; i < 20; ++i) {
    window.OnSilence(now = window.DueUs());
    SendAll(window, now);
  }
  EXPECT_EQ(1000 * kMs, window.DueUs() - now);
  Answer(5, 3);  // answers a copy of call 3 after call 5 ran
  EXPECT_EQ(0u, window.Held());
  EXPECT_EQ(SendWindow::kNever, window.DueUs());
}

TEST_F(SendWindowTest, GivesUpANameThatTheServiceForgotOrRelearnt) {
  Begin();
  Append(2);
  SendAll(window, 0);
  EXPECT_TRUE(Answer(0, 2));
  EXPECT_TRUE(Answer(0, 0));  // the service does not know the new name either
  EXPECT_EQ(1u, window.Forgotten());
  for (unsigned number = 1; number <= 2; ++number) {
    SendAll(window, 0);
    Answer(number, number);
  }
  // The service has forgotten the name, and learnt it again from a late copy of its first call.
  Append(1);
  const std::string name = Name();
  for (uint64_t now = 0, tries = 0; name == Name(); window.OnSilence(now = window.DueUs())) {
    ASSERT_LT(++tries, 30u);
    SendAll(window, now);
    Answer(1, 3, 0, now);
  }
  EXPECT_EQ((Lines{"1 x"}), SendAll(window, 0));
}

TEST_F(SendWindowTest, CountsRefusalsAndIgnoresImpossibleAcks) {
  Begin();
  Append(3);
  SendAll(window, 0);
  Answer(3, 3, 2);
  Answer(4, 4, 1);
  EXPECT_EQ(2u, window.Refused());
  EXPECT_EQ(0u, window.Held());
  Append(1);
  for (const char* rest : {"", " ", " 5", " 5 5", " 5 5 x", " -5 5 0", " 6 6 0", " 18446744073709551615 5 0"})
    window.TakeAnswer(("Ack " + Name() + rest).c_str(), 0);
  EXPECT_EQ(1u, window.Held());
}
