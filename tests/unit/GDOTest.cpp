#include "common/GDO.h"

#include "common/ArgsParser.h"
#include "tests/unit/Test.h"

namespace {

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

struct Lamp : Velk::GDO<Lamp> {
  Lamp() {
    AddHandler("SwitchOff", &Lamp::SwitchOff);
    AddHandler("Dim", &Lamp::Dim);
  }

  bool SwitchOff(const Velk::IArgsList*) {
    m_level = 0;
    return true;
  }
  bool Dim(const Velk::IArgsList* args) {
    if (args->GetCount() == 1) m_level = static_cast<int>(args->GetItem(0)->AsInt());
    return args->GetCount() == 1;
  }

  int m_level = 100;
};

}  // namespace

TEST(GDO, FindsHandlersByNameInAnyCase) {
  // Name, arguments, whether it is done, level.
  const std::tuple<const char*, const char*, bool, int> rows[] = {
      {"SwitchOff", "", true, 0}, {"dIM", "30", true, 30},    {"DIM", "", false, 100},
      {"Di", "30", false, 100},   {"Dimm", "30", false, 100}, {"", "", false, 100},
      {nullptr, "30", false, 100}};
  Velk::ArgsParser parser(2);
  for (const auto& [name, args, done, level] : rows) {
    Lamp lamp;
    ASSERT_TRUE(parser.ParseArgs(args));
    EXPECT_EQ(done, lamp.Dispatch(name, parser.GetArgs())) << testing::PrintToString(name);
    EXPECT_EQ(level, lamp.m_level) << testing::PrintToString(name);
  }
}

TEST(GDO, PostsCallsAndTakesThemBack) {
  auto* const lamp = new Lamp;
  PostKeeper first(lamp), second(lamp);
  lamp->Call("SwitchOff", "");  // no queue: dropped
  lamp->AttachQueue(&first);
  (*lamp << "Dim" << 30).CallObj();
  EXPECT_EQ(Lines{"Dim 30"}, first.m_seen);
  EXPECT_EQ(100, lamp->m_level);
  lamp->AttachQueue(&second);
  EXPECT_EQ((Lines{"Dim 30", "cancelled"}), first.m_seen);
  delete lamp;
  EXPECT_EQ(Lines{"cancelled"}, second.m_seen);
}
