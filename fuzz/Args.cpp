// The argument parser beside a plain one; what it found is written and read again.
#include <gtest/gtest.h>

#include "common/ArgsParser.h"
#include "common/IGenericDispatchObj.h"
#include "tests/unit/ArgsModel.h"

namespace {

constexpr unsigned kMaxArgs = 6;

struct CallKeeper final : Velk::IGenericDispatchObj {
  void Call(const char*, const char* args) override { m_args = args; }
  Velk::ArgsBuilder2 operator<<(const char* name) override { return Velk::ArgsBuilder2(name, this); }
  std::string m_args;
};

void Check(Velk::ArgsParser& parser, const std::string& text) {
  Texts expected;
  const bool isGood = ParsePlainly(text, kMaxArgs, expected);
  ASSERT_EQ(isGood, parser.ParseArgs(std::string(text).c_str()));  // a copy that ends where the text ends
  const Velk::IArgsList& args = *parser.GetArgs();
  ASSERT_EQ(expected, TextsOf(args));

  CallKeeper keeper;
  Velk::ArgsBuilder2 builder = keeper << "x";
  for (unsigned i = 0; i < args.GetCount(); ++i) {
    args.GetItem(i)->AsNum();
    builder << args[i]->AsStr() << args[i]->AsInt();
  }
  builder.CallObj();
  Velk::ArgsParser second(2 * kMaxArgs);
  ASSERT_TRUE(second.ParseArgs(keeper.m_args.c_str()));
  ASSERT_EQ(2 * args.GetCount(), second.GetArgs()->GetCount());
  for (unsigned i = 0; i < args.GetCount(); ++i) {
    ASSERT_STREQ(args.GetItem(i)->AsStr(), second.GetArgs()->GetItem(2 * i)->AsStr());
    ASSERT_EQ(args.GetItem(i)->AsInt(), second.GetArgs()->GetItem(2 * i + 1)->AsInt());
  }
}

}  // namespace

// Texts that end in a zero byte each go to one parser, as the queue's thread does with its messages.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Velk::ArgsParser parser(kMaxArgs);
  const std::string all(data, data + size);
  for (size_t at = 0; at <= all.size(); at = std::min(all.find('\0', at), all.size()) + 1)
    Check(parser, all.substr(at).c_str());
  return 0;
}
