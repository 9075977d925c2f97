#include "app/AckClients.h"

#include "tests/unit/Test.h"

TEST(AckClients, ForgetsTheLeastRecentlyUsedAndFindsAllOthers) {
  AckClients clients;
  for (unsigned newest = 1; newest <= 2000; ++newest) {
    AckClients::Client* const client = clients.Add(std::to_string(newest).c_str());
    ASSERT_EQ(0u, client->last + client->refused);
    client->last = client->refused = newest;
    const unsigned oldest = newest - std::min(newest, AckClients::kMost) + 1;
    EXPECT_EQ(nullptr, clients.Find(std::to_string(oldest - 1).c_str()));
    for (unsigned number = oldest; number <= newest; ++number) {
      const AckClients::Client* const known = clients.Find(std::to_string(number).c_str());
      ASSERT_TRUE(known != nullptr && known->last == number) << number << " of " << newest;
    }
  }
}
