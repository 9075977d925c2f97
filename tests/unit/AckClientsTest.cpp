#include "app/AckClients.h"

#include "tests/unit/Choices.h"

// Beside a list of the clients in the order of their last use.
TEST(AckClients, ForgetsTheLeastRecentlyUsed) {
  AckClients clients;
  std::vector<std::pair<std::string, uint64_t>> model;
  size_t forgotten = 0;
  for (Choices choices = Choices::Random(11, 300000); choices.AreLeft();) {
    // Now and then so many names that most are new, else those of a table that is just too small.
    const unsigned number = choices.Below(choices.Below(8) == 0 ? 2000 : AckClients::kMost + 4);
    std::string name = std::to_string(number);
    if (number % 3 == 0) name.insert(0, AckClients::kLongestName - name.size(), 'x');
    AckClients::Client* client = clients.Find(name.c_str());
    const auto known =
        std::find_if(model.begin(), model.end(), [&](const auto& row) { return row.first == name; });
    ASSERT_EQ(known != model.end(), client != nullptr) << name;
    std::pair<std::string, uint64_t> row(name, 0);
    if (client != nullptr) {
      row = *known;
      model.erase(known);
    } else {
      if (choices.Below(4) == 0) continue;
      client = clients.Add(name.c_str());
      ASSERT_EQ(0u, client->refused);
    }
    ASSERT_EQ(name, client->name);
    ASSERT_EQ(row.second, client->last);
    client->refused = client->last = row.second = row.second + 1;
    model.push_back(row);
    if (model.size() <= AckClients::kMost) continue;
    model.erase(model.begin());
    ++forgotten;
  }
  EXPECT_GT(forgotten, 10000u);
}
