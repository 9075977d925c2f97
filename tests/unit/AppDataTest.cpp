#include "common/AppData.h"

#include "tests/unit/CapturedLog.h"
#include "tests/unit/TempDirectory.h"

namespace {

AppData* const data = AppData::GetInstance();

std::string s_calls;  // the labels of the callbacks called

// Notes its label. Refuses the value "no".
bool OnVar(const char*, const char* value, void* label) {
  s_calls += static_cast<const char*>(label);
  return std::string("no") != value;
}

void OnDlg(const char* dialog, AppData::EDlgAction action, bool flag, void* label) {
  s_calls += static_cast<const char*>(label) + std::string(dialog) + (action == AppData::eEnter ? "<" : ">") +
             (flag ? "1 " : "0 ");
}

void* ClearAndLabel(const char* label) {
  s_calls.clear();
  return const_cast<char*>(label);
}

TEST(AppData, FlagsChangesUntilSaved) {
  const TempDirectory dir;
  dir.Write("ini", "[Data]\nremotelog_type=SysLog server\n");
  ASSERT_NE(0, data->Load(dir.Path("ini").c_str()));
  data->SetVar("remotelog_type", "SysLog server");
  data->SetVar("absent", "");  // no flag: an absent variable counts as ""
  EXPECT_FALSE(data->IsVarChanged("remotelog_type") || data->IsVarChanged("absent"));
  data->SetVar("RemoteLog_Type", "none");
  EXPECT_STREQ("none", data->GetVar("remotelog_type", ""));
  EXPECT_TRUE(data->IsVarChanged("RemoteLog_Type") && !data->IsVarChanged("remotelog_type"));  // case counts
  data->SetVarChanged("other", true);
  data->Save();
  EXPECT_FALSE(data->IsVarChanged("RemoteLog_Type") || data->IsVarChanged("other"));
  EXPECT_EQ("[Data]\nremotelog_type=none\nabsent=\n", dir.Read("ini"));
}

TEST(AppData, TakesNullsAndEmptyNames) {
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    data->SetVar(name, "x");
    data->SetVarChanged(name, true);
    EXPECT_STREQ("def", data->GetVar(name, "def"));
    EXPECT_FALSE(data->IsVarChanged(name));
    data->SubscribeVarChanges(name, OnVar, ClearAndLabel("a"));
    EXPECT_TRUE(data->OnVarChanged(name, "no") && s_calls.empty());
    data->UnsubscribeVarChanges(name, OnVar);
  }
  data->SetVar("null", nullptr);
  EXPECT_STREQ("def", data->GetVar("null", "def"));
}

TEST(AppData, AsksSubscribersInOrderAndAcceptsAVeto) {
  CapturedLog log(false);
  data->SubscribeVarChanges("asked", OnVar, ClearAndLabel("a"));
  data->SubscribeVarChanges("asked", OnVar, ClearAndLabel("b"));
  EXPECT_FALSE(data->OnVarChanged("asked", "no") || data->IsVarChanged("asked"));
  EXPECT_STREQ("def", data->GetVar("asked", "def"));
  EXPECT_EQ(Lines{"1:AppData::SubscribeVarChanges(asked): Create list!\n"}, log.Take());
  EXPECT_EQ("a", s_calls);

  EXPECT_TRUE(data->OnVarChanged("asked", "yes") && data->IsVarChanged("asked"));
  EXPECT_STREQ("yes", data->GetVar("asked", ""));
  EXPECT_EQ(Lines{"1:OnVarChanged: SetVar: asked='yes'\n"}, log.Take());
  data->UnsubscribeVarChanges("asked", OnVar);
  EXPECT_TRUE(data->OnVarChanged("asked", "no"));
  EXPECT_EQ("aab", s_calls);
}

TEST(AppData, AlwaysPassesTrueToSubscribersOfAnyDialog) {
  data->SubscribeAnyDlgChanges(OnDlg, ClearAndLabel("any:"));
  data->SubscribeDlgChanges("d", OnDlg, ClearAndLabel("one:"));
  data->OnEnterDialog("d");
  data->OnExitDialog("d", false);
  data->OnExitDialog("e", false);
  data->UnsubscribeDlgChanges("d", OnDlg);
  data->UnsubscribeAnyDlgChanges(OnDlg);
  data->OnEnterDialog("d");
  EXPECT_EQ("one:d<1 any:d<1 one:d>0 any:d>1 any:e>1 ", s_calls);
}

// Ends its own two subscriptions, and that of OnVar, which would be asked next.
bool LeaveAll(const char* name, const char*, void*) {
  s_calls += "l";
  data->UnsubscribeVarChanges(name, LeaveAll);
  data->UnsubscribeVarChanges(name, OnVar);
  return true;
}

bool Nest(const char* name, const char* value, void* user) {
  s_calls += "n";
  if (user == nullptr) return true;
  data->UnsubscribeVarChanges(name, Nest);
  return data->OnVarChanged(name, value);  // LeaveAll() runs inside the outer iteration
}

TEST(AppData, SurvivesSubscribersThatLeaveWhileAsked) {
  data->SubscribeVarChanges("left", Nest, ClearAndLabel("nest"));
  data->SubscribeVarChanges("left", LeaveAll, nullptr);
  data->SubscribeVarChanges("left", LeaveAll, nullptr);
  data->SubscribeVarChanges("left", OnVar, ClearAndLabel("a"));
  data->SubscribeVarChanges("left", Nest, nullptr);
  EXPECT_TRUE(data->OnVarChanged("left", "x") && data->OnVarChanged("left", "y"));
  EXPECT_EQ("nl", s_calls);
}

}  // namespace
