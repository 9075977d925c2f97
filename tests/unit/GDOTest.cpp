#include "common/GDO.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/ArgsParser.h"

namespace {

// Keeps posts instead of delivering them.
class PostKeeper final : public Velk::IGenericDispatchQueue {
 public:
  void PostTimer(unsigned, unsigned long, Velk::IGenericDispatchTarget*, const char*, const char*) override {}
  void CancelTimer(unsigned, Velk::IGenericDispatchTarget*) override {}
  void CancelAllMessages(Velk::IGenericDispatchTarget* target) override { m_cancelled.push_back(target); }
  void Post(Velk::IGenericDispatchTarget* target, const char* name, const char* args) override {
    m_target = target;
    m_posts.push_back(std::string(name) + args);
  }

  Velk::IGenericDispatchTarget* m_target = nullptr;
  std::vector<std::string> m_posts;
  std::vector<Velk::IGenericDispatchTarget*> m_cancelled;
};

class Lamp : public Velk::GDO<Lamp> {
 public:
  Lamp() {
    AddHandler("SwitchOn", &Lamp::SwitchOn);
    AddHandler("Dim", &Lamp::Dim);
  }

  int m_level = 0;

 private:
  bool SwitchOn(const Velk::IArgsList*) {
    m_level = 100;
    return true;
  }
  bool Dim(const Velk::IArgsList* args) {
    if (args->GetCount() != 1) return false;
    m_level = static_cast<int>(args->GetItem(0)->AsInt());
    return true;
  }
};

}  // namespace

TEST(GDO, FindsHandlersByNameInAnyCase) {
  struct {
    const char* name;
    const char* args;
    bool done;
    int level;
  } const rows[] = {
      {"SwitchOn", "", true, 100}, {"dIM", "30", true, 30}, {"DIM", "", false, 0},     {"Di", "30", false, 0},
      {"Dimm", "30", false, 0},    {"", "", false, 0},      {nullptr, "30", false, 0},
  };
  Velk::ArgsParser parser(2);
  for (const auto& row : rows) {
    Lamp lamp;
    const char* shown = row.name != nullptr ? row.name : "null";
    ASSERT_TRUE(parser.ParseArgs(row.args));
    EXPECT_EQ(row.done, lamp.Dispatch(row.name, parser.GetArgs())) << shown;
    EXPECT_EQ(row.level, lamp.m_level) << shown;
  }
}

TEST(GDO, PostsCallsAndTakesThemBack) {
  PostKeeper first;
  PostKeeper second;
  Velk::IGenericDispatchTarget* target = nullptr;
  {
    Lamp lamp;
    target = &lamp;
    lamp.Call("SwitchOn", "");  // no queue: dropped
    lamp.AttachQueue(&first);
    (lamp << "Dim" << 30).CallObj();
    EXPECT_EQ(0, lamp.m_level);
    EXPECT_EQ(target, first.m_target);
    EXPECT_EQ(std::vector<std::string>{"Dim 30"}, first.m_posts);
    EXPECT_TRUE(first.m_cancelled.empty());
    lamp.AttachQueue(&second);
    EXPECT_EQ(std::vector<Velk::IGenericDispatchTarget*>{target}, first.m_cancelled);
    EXPECT_TRUE(second.m_cancelled.empty());
  }
  EXPECT_EQ(std::vector<Velk::IGenericDispatchTarget*>{target}, second.m_cancelled);
}
