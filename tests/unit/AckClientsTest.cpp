#include "app/AckClients.h"

#include "tests/unit/Test.h"

TEST(AckClients, ForgetsTheLeastRecentlyUsedAndFindsAllOthers) {
  AckClients clients;
  const auto nameOf = [](unsigned number) {
    const std::string digits = std::to_string(number);
    return std::string(AckClients::kLongestName - digits.size(), 'x') + digits;
  };
  for (unsigned newest = 1; newest <= 2000; ++newest) {
    AckClients::Client* const client = clients.Add(nameOf(newest).c_str());
    ASSERT_EQ(0u, client->last + client->refused);
    client->last = client->refused = newest;
    const unsigned oldest = newest - std::min(newest, AckClients::kMost) + 1;
    EXPECT_EQ(nullptr, clients.Find(nameOf(oldest - 1).c_str()));
    for (unsigned number = oldest; number <= newest; ++number) {
      const AckClients::Client* const known = clients.Find(nameOf(number).c_str());
      ASSERT_TRUE(known != nullptr && known->last == number) << number << " of " << newest;
    }
  }
}
