#include "common/GDO.h"

#include "common/ArgsParser.h"
#include "tests/unit/Test.h"

namespace {

using Target = Velk::IGenericDispatchTarget;

struct PostKeeper final : Velk::IGenericDispatchQueue {
  void PostTimer(unsigned, unsigned long, Target*, const char*, const char*) override {}
  void CancelTimer(unsigned, Target*) override {}
  void CancelAllMessages(Target* target) override { m_seen.emplace_back(target, "cancelled"); }
  void Post(Target* target, const char* name, const char* args) override {
    m_seen.emplace_back(target, std::string(name) + args);
  }
  std::vector<std::pair<Target*, std::string>> m_seen;
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

TEST(GDO, FindsHandlersByTheWholeNameInAnyCase) {
  Lamp lamp;
  Velk::ArgsParser parser(2);
  ASSERT_TRUE(parser.ParseArgs("30"));
  for (const char* name : {"Di", "Dimm", "", static_cast<const char*>(nullptr)})
    EXPECT_FALSE(lamp.Dispatch(name, parser.GetArgs())) << testing::PrintToString(name);
  EXPECT_TRUE(lamp.Dispatch("dIM", parser.GetArgs()));
  EXPECT_EQ(30, lamp.m_level);
}

TEST(GDO, PostsCallsAndCancelsThem) {
  auto* const lamp = new Lamp;
  PostKeeper first, second;
  const std::pair<Target*, std::string> dim(lamp, "Dim 30"), cancelled(lamp, "cancelled");
  lamp->Call("SwitchOff", "");  // no queue: dropped
  lamp->AttachQueue(&first);
  (*lamp << "Dim" << 30).CallObj();
  EXPECT_EQ(100, lamp->m_level);
  lamp->AttachQueue(&second);
  EXPECT_EQ((std::vector{dim, cancelled}), first.m_seen);
  delete lamp;
  EXPECT_EQ(std::vector{cancelled}, second.m_seen);
}
