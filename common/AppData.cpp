#include "common/AppData.h"

#include <string.h>

#include "common/LogPrinter.h"
#include "common/TextOps.h"

using Velk::TextOps;

namespace {

constexpr char kSection[] = "Data";

}  // namespace

AppData* AppData::GetInstance() {
  static AppData* const s_instance = new AppData;
  return s_instance;
}

int AppData::Load(const char* path) {
  return m_file.Load(path);
}

void AppData::Save() {
  m_file.Save(nullptr);
  m_changed.Clear();
}

const char* AppData::GetVar(const char* name, const char* def) const {
  return !TextOps::IsEmpty(name) ? m_file.GetString(kSection, name, def) : def;
}

void AppData::SetVar(const char* name, const char* value) {
  if (strcmp(GetVar(name, ""), TextOps::OrEmpty(value)) != 0) SetVarChanged(name, true);
  m_file.SetString(kSection, name, value);
}

void AppData::SetVarChanged(const char* name, bool flag) {
  m_changed.Set0(m_changed.kMaxKeyLength, name, flag);
}

namespace {

// Number of iterations in progress, over any list. During one, Unsubscribe() only sets the node's callback to
// null, since the iteration may go there next. A later Unsubscribe() frees the node; ForEach() ends with one.
unsigned s_iterations = 0;

template <class T>
void Subscribe(StrDict3<SimpleListDL<T>*>& lists, const char* name, const T& subscriber) {
  SimpleListDL<T>* list = lists.Get(name);
  if (list == nullptr) {
    list = new SimpleListDL<T>;
    if (!lists.Set0(lists.kMaxKeyLength, name, list)) {
      delete list;  // null or empty name
      return;
    }
  }
  list->Append(subscriber);
}

template <class T>
void Unsubscribe(SimpleListDL<T>* list, decltype(T::m_callback) callback) {
  for (auto* node = list != nullptr ? list->Head() : nullptr; node != nullptr;) {
    auto* const next = node->m_next;
    if (node->m_value.m_callback == callback) node->m_value.m_callback = nullptr;
    if (node->m_value.m_callback == nullptr && s_iterations == 0) list->Remove(node);
    node = next;
  }
}

// Calls visit for each subscriber, oldest first. Stops and returns false if visit does.
template <class T, class Visit>
bool ForEach(SimpleListDL<T>* list, Visit visit) {
  bool goOn = true;
  ++s_iterations;
  for (auto* node = list != nullptr ? list->Head() : nullptr; goOn && node != nullptr;) {
    auto* const next = node->m_next;
    if (node->m_value.m_callback != nullptr) goOn = visit(node->m_value);
    node = next;
  }
  --s_iterations;
  Unsubscribe(list, nullptr);
  return goOn;
}

}  // namespace

bool AppData::OnVarChanged(const char* name, const char* value) {
  const bool isAccepted = ForEach(m_varSubscribers.Get(name), [=](const VarNode& subscriber) {
    return subscriber.m_callback(name, value, subscriber.m_user);
  });
  if (!isAccepted) return false;
  LogPrinter::Instance()->Log(Info, nullptr, "OnVarChanged: SetVar: %s='%s'\n", TextOps::OrEmpty(name),
                              TextOps::OrEmpty(value));
  SetVar(name, value);
  return true;
}

void AppData::SubscribeVarChanges(const char* name, VarCallback callback, void* user) {
  if (m_varSubscribers.Get(name) == nullptr) {
    LogPrinter::Instance()->Log(Info, nullptr, "AppData::SubscribeVarChanges(%s): Create list!\n",
                                TextOps::OrEmpty(name));
  }
  Subscribe(m_varSubscribers, name, VarNode{callback, user});
}

void AppData::UnsubscribeVarChanges(const char* name, VarCallback callback) {
  Unsubscribe(m_varSubscribers.Get(name), callback);
}

void AppData::SubscribeDlgChanges(const char* dialog, DlgCallback callback, void* user) {
  Subscribe(m_dlgSubscribers, dialog, DlgNode{callback, user});
}

void AppData::UnsubscribeDlgChanges(const char* dialog, DlgCallback callback) {
  Unsubscribe(m_dlgSubscribers.Get(dialog), callback);
}

void AppData::SubscribeAnyDlgChanges(DlgCallback callback, void* user) {
  m_anyDlgSubscribers.Append(DlgNode{callback, user});
}

void AppData::UnsubscribeAnyDlgChanges(DlgCallback callback) {
  Unsubscribe(&m_anyDlgSubscribers, callback);
}

void AppData::OnEnterDialog(const char* dialog) {
  NotifyDlg(dialog, eEnter, true);
}

void AppData::OnExitDialog(const char* dialog, bool flag) {
  NotifyDlg(dialog, eExit, flag);
}

void AppData::NotifyDlg(const char* dialog, EDlgAction action, bool flag) {
  ForEach(m_dlgSubscribers.Get(dialog), [=](const DlgNode& subscriber) {
    subscriber.m_callback(dialog, action, flag, subscriber.m_user);
    return true;
  });
  // The flag is always true: subscribers to all dialogs rely on it.
  ForEach(&m_anyDlgSubscribers, [=](const DlgNode& subscriber) {
    subscriber.m_callback(dialog, action, true, subscriber.m_user);
    return true;
  });
}
