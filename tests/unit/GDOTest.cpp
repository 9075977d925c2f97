#include "common/GDO.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/ArgsParser.h"

namespace {

using Lines = std::vector<std::string>;

// Keeps posts instead of delivering them.
struct PostKeeper final : Velk::IGenericDispatchQueue {
  explicit PostKeeper(Velk::IGenericDispatchTarget* owner) : m_owner(owner) {}
  void PostTimer(unsigned, unsigned long, Velk::IGenericDispatchTarget*, const char*, const char*) override {}
  void CancelTimer(unsigned, Velk::IGenericDispatchTarget*) override {}
  void CancelAllMessages(Velk::IGenericDispatchTarget* target) override {
    m_seen.push_back(target == m_owner ? "cancelled" : "?");
  }
  void Post(Velk::IGenericDispatchTarget* target, const char* name, const char* args) override {
    m_seen.push_back((target == m_owner ? "" : "?") + std::string(name) + args);
  }

  const Velk::IGenericDispatchTarget* m_owner;
  Lines m_seen;
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
    int level;  // 0: refused
  } const rows[] = {
      {"SwitchOn", "", 100}, {"dIM", "30", 30}, {"DIM", "", 0},     {"Di", "30", 0},
      {"Dimm", "30", 0},     {"", "", 0},       {nullptr, "30", 0},
  };
  Velk::ArgsParser parser(2);
  for (const auto& row : rows) {
    Lamp lamp;
    ASSERT_TRUE(parser.ParseArgs(row.args));
    EXPECT_EQ(row.level != 0, lamp.Dispatch(row.name, parser.GetArgs())) << testing::PrintToString(row.name);
    EXPECT_EQ(row.level, lamp.m_level) << testing::PrintToString(row.name);
  }
}

TEST(GDO, PostsCallsAndTakesThemBack) {
  auto* const lamp = new Lamp;
  PostKeeper first(lamp), second(lamp);
  lamp->Call("SwitchOn", "");  // no queue: dropped
  lamp->AttachQueue(&first);
  (*lamp << "Dim" << 30).CallObj();
  EXPECT_EQ(Lines{"Dim 30"}, first.m_seen);
  EXPECT_EQ(0, lamp->m_level);
  lamp->AttachQueue(&second);
  EXPECT_EQ((Lines{"Dim 30", "cancelled"}), first.m_seen);
  delete lamp;
  EXPECT_EQ(Lines{"cancelled"}, second.m_seen);
}
