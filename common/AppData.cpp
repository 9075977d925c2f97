#include "common/AppData.h"

#include <string.h>

#include "common/LogPrinter.h"

namespace {

constexpr char kSection[] = "Data";

const char* OrEmpty(const char* text) {
  return text != nullptr ? text : "";
}

}  // namespace

AppData* AppData::GetInstance() {
  static AppData s_instance;
  return &s_instance;
}

int AppData::Load(const char* path) {
  return m_file.Load(path);
}

void AppData::Save() {
  m_file.Save(nullptr);
  m_changed.Clear();
}

const char* AppData::GetVar(const char* name, const char* def) const {
  return *OrEmpty(name) != '\0' ? m_file.GetString(kSection, name, def) : def;
}

void AppData::SetVar(const char* name, const char* value) {
  if (strcmp(GetVar(name, ""), OrEmpty(value)) != 0) SetVarChanged(name, true);
  m_file.SetString(kSection, name, value);
}

void AppData::SetVarChanged(const char* name, bool flag) {
  m_changed.Set0(m_changed.kMaxKeyLength, name, flag);
}

namespace {

// A walk over subscribers during which any of them may go: before a node is freed, all walks that stand
// before it step over it.
template <class T>
class Walk {
 public:
  explicit Walk(const SimpleListDL<T>& list) : m_next(list.Head()), m_outer(s_innermost) {
    s_innermost = this;
  }
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;
  ~Walk() { s_innermost = m_outer; }

  // False: no more subscribers.
  bool Next(T& subscriber) {
    if (m_next == nullptr) return false;
    subscriber = m_next->m_value;
    m_next = m_next->m_next;
    return true;
  }

  static void StepOver(const typename SimpleListDL<T>::Node* node) {
    for (Walk* walk = s_innermost; walk != nullptr; walk = walk->m_outer) {
      if (walk->m_next == node) walk->m_next = node->m_next;
    }
  }

 private:
  typename SimpleListDL<T>::Node* m_next;
  Walk* m_outer;

  static Walk* s_innermost;
};

template <class T>
Walk<T>* Walk<T>::s_innermost = nullptr;

// The lists live to the end of the process, longer than the store: another thread may still be walking one
// when exit() destroys it. This root tells them from lost memory.
void KeepForever(void* list) {
  static auto* const s_lists = new SimpleListDL<void*>;
  s_lists->Append(list);
}

template <class T>
void Subscribe(StrDict3<SimpleListDL<T>*>& lists, const char* name, const T& subscriber) {
  SimpleListDL<T>* list = lists.Get(name);
  if (list == nullptr) {
    list = new SimpleListDL<T>;
    if (!lists.Set0(lists.kMaxKeyLength, name, list)) {
      delete list;  // without a name nobody would ever reach it
      return;
    }
    KeepForever(list);
  }
  list->Append(subscriber);
}

template <class T, class Callback>
void Unsubscribe(SimpleListDL<T>* list, Callback callback) {
  if (list == nullptr) return;
  for (auto* node = list->Head(); node != nullptr;) {
    auto* next = node->m_next;
    if (node->m_value.m_callback == callback) {
      Walk<T>::StepOver(node);
      list->Remove(node);
    }
    node = next;
  }
}

}  // namespace

bool AppData::OnVarChanged(const char* name, const char* value) {
  if (const VarList* list = m_varSubscribers.Get(name)) {
    Walk<VarNode> walk(*list);
    for (VarNode subscriber{}; walk.Next(subscriber);) {
      if (!subscriber.m_callback(name, value, subscriber.m_user)) return false;
    }
  }
  LogPrinter::Instance()->Log(Info, nullptr, "OnVarChanged: SetVar: %s='%s'\n", OrEmpty(name),
                              OrEmpty(value));
  SetVar(name, value);
  return true;
}

void AppData::SubscribeVarChanges(const char* name, VarCallback callback, void* user) {
  if (m_varSubscribers.Get(name) == nullptr) {
    LogPrinter::Instance()->Log(Info, nullptr, "AppData::SubscribeVarChanges(%s): Create list!\n",
                                OrEmpty(name));
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

namespace {

void Notify(const SimpleListDL<AppData::DlgNode>& list, const char* dialog, AppData::EDlgAction action,
            bool flag) {
  Walk<AppData::DlgNode> walk(list);
  for (AppData::DlgNode subscriber{}; walk.Next(subscriber);) {
    subscriber.m_callback(dialog, action, flag, subscriber.m_user);
  }
}

}  // namespace

void AppData::NotifyDlg(const char* dialog, EDlgAction action, bool flag) {
  if (const DlgList* list = m_dlgSubscribers.Get(dialog)) Notify(*list, dialog, action, flag);
  // Those who watch every dialog want to know that it is over, not how it ended: always true.
  Notify(m_anyDlgSubscribers, dialog, action, true);
}
