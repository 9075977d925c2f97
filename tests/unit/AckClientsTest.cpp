#include "app/AckClients.h"

#include "tests/unit/Test.h"

TEST(AckClients, ForgetsTheLeastRecentlyUsedAndFindsAllOthers) {
  AckClients clients;
  const auto nameOf = [](unsigned number) {
    const std::string digits = std::to_string(number);
    return std::string(AckClients::kLongestName - digits.size(), 'x') + digits;
  };
  std::vector<unsigned> known;  // least recently used first
  for (unsigned newest = 1; newest <= 2000; ++newest) {
    AckClients::Client* const client = clients.Add(nameOf(newest).c_str());
    ASSERT_EQ(0u, client->last + client->refused);
    client->last = client->refused = newest;
    known.push_back(newest);
    if (known.size() > AckClients::kMost) {
      EXPECT_EQ(nullptr, clients.Find(nameOf(known.front()).c_str()));
      known.erase(known.begin());
    }
    std::rotate(known.begin(), known.begin() + newest % known.size(), known.end());
    for (const unsigned number : known) {
      const AckClients::Client* const found = clients.Find(nameOf(number).c_str());
      ASSERT_TRUE(found != nullptr && found->last == number) << number << " of " << newest;
    }
  }
}
