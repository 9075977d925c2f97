#include "common/StrDict3.h"

#include "tests/unit/Test.h"

namespace {

constexpr unsigned kAll = 65535;

using Dict = StrDict3<int>;

struct NotingAllocator : Dict::IAllocator {
  Dict::Node* Get() override { return new Dict::Node; }
  void Release(Dict::Node* node) override {
    m_released += static_cast<char>(node->m_char);
    delete node;
  }
  std::string m_released;
};

}  // namespace

TEST(StrDict3, AgreesWithAMap) {
  enum Mode { kExact, kLower, kUpper };
  for (const Mode mode : {kExact, kLower, kUpper}) {
    std::mt19937 random(7);
    Dict dict(mode == kExact, mode == kUpper);
    std::map<std::string, int> model;
    for (int step = 1; step <= 20000; ++step) {
      std::string key(random() % 6, ' ');
      for (char& c : key) c = "aAbB_[\x7f\x80\xff"[random() % 9];
      std::string folded = key;
      for (char& c : folded) {
        if (mode == kLower && c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
        if (mode == kUpper && c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
      }
      const auto found = model.find(folded);
      ASSERT_EQ(found != model.end() ? found->second : 0, dict.Get(key.c_str())) << key;
      if (random() % 4 == 0) {
        ASSERT_EQ(!key.empty(), dict.Set0(kAll, key.c_str(), step));
        if (!key.empty()) model[folded] = step;
      }
      if (random() % 1000 != 0) continue;
      dict.Clear();
      model.clear();
    }
  }
}

TEST(StrDict3, KeysHaveLimits) {
  Dict dict;
  EXPECT_FALSE(dict.Set0(kAll, nullptr, 1));
  EXPECT_EQ(0, dict.Get(nullptr));
  EXPECT_TRUE(dict.Set0(1, "xyz", 3));
  EXPECT_EQ(3, dict.Get("x"));
  const std::string longest(Dict::kMaxKeyLength, 'k');
  dict.Set0(kAll, (longest + "tail").c_str(), 1);
  EXPECT_EQ(1, dict.Get(longest.c_str()));
  EXPECT_EQ(1, dict.Get((longest + "other").c_str()));
}

TEST(StrDict3, ReleasesChildrenBeforeSiblingsInSignedOrder) {
  NotingAllocator nodes;
  {
    Dict dict(true, false, &nodes);
    for (const char* key : {"c", "az", "ax", "b", "\xff", "axy"}) dict.Set0(kAll, key, 1);
  }
  EXPECT_EQ("\xff\x61xyzbc", nodes.m_released);
}

TEST(StrDict3, PoolGrowsByBlocksAndReusesNodes) {
  StrDict3<bool>::Allocator<16u> pool;
  StrDict3<bool> dict(true, false, &pool);
  dict.Set0(kAll, "abcdefghijklmnop", true);
  EXPECT_EQ(16u, pool.Total());
  dict.Set0(kAll, "abcdefghijklmnopq", true);
  EXPECT_EQ(32u, pool.Total());
  dict.Clear();
  EXPECT_EQ(0u, pool.Used());
  dict.Set0(kAll, std::string(32, 'x').c_str(), true);
  EXPECT_EQ(32u, pool.Total());
}
