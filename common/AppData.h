// Configuration layer: the process-wide store of named variables.
#pragma once

#include "common/IniFile3.h"
#include "common/SimpleListDL.h"
#include "common/StrDict3.h"

// Keeps the variables as keys of section "Data" of one file, notes which of them changed since the last
// Save(), and tells subscribers about variables and dialogs. Not thread-safe: after start-up all calls come
// from one thread. Null and empty names are unknown, never changed and without subscribers.
//
// Case does not matter in the file, but does for change flags and subscriptions: setting "Name" changes the
// value of "name" too, but flags only "Name".
//
// A callback may subscribe and unsubscribe anyone, itself included, and set variables.
class AppData {
 public:
  enum EDlgAction { eEnter = 0, eExit = 1 };

  // Returns false to refuse the change.
  using VarCallback = bool (*)(const char* name, const char* value, void* user);
  using DlgCallback = void (*)(const char* dialog, EDlgAction action, bool flag, void* user);

  struct VarNode {
    VarCallback m_callback;
    void* m_user;
  };

  struct DlgNode {
    DlgCallback m_callback;
    void* m_user;
  };

  // The one instance, built on first use. It stays to the end: a thread may still use it while exit(3) runs.
  static AppData* GetInstance();
  AppData(const AppData&) = delete;
  AppData& operator=(const AppData&) = delete;

  // See IniFile3::Load; change flags stay. 0: failed.
  int Load(const char* path);
  // Writes the file that was loaded last and forgets all change flags, also when the file could not be
  // written or none was loaded, which is not reported.
  void Save();

  // The text is valid until the variable is set or a file loaded. A variable that is absent gives def.
  const char* GetVar(const char* name, const char* def) const;
  // Sets a variable and flags it when the value is another one; absent counts as empty. Asks no subscriber.
  void SetVar(const char* name, const char* value);
  // Asks the variable's subscribers, oldest first, and sets it if all agree. False: one refused, nothing is
  // changed and later subscribers were not asked.
  bool OnVarChanged(const char* name, const char* value);

  bool IsVarChanged(const char* name) const { return m_changed.Get(name); }
  void SetVarChanged(const char* name, bool flag);

  // Subscribing twice calls twice; unsubscribing removes all with that callback, whatever their user.
  void SubscribeVarChanges(const char* name, VarCallback callback, void* user);
  void UnsubscribeVarChanges(const char* name, VarCallback callback);
  void SubscribeDlgChanges(const char* dialog, DlgCallback callback, void* user);
  void UnsubscribeDlgChanges(const char* dialog, DlgCallback callback);
  void SubscribeAnyDlgChanges(DlgCallback callback, void* user);
  void UnsubscribeAnyDlgChanges(DlgCallback callback);

  // Tell the dialog's subscribers, then those of any dialog. The latter always get flag true.
  void OnEnterDialog(const char* dialog);
  void OnExitDialog(const char* dialog, bool flag);

 private:
  using VarList = SimpleListDL<VarNode>;
  using DlgList = SimpleListDL<DlgNode>;

  AppData() = default;
  ~AppData() = default;

  void NotifyDlg(const char* dialog, EDlgAction action, bool flag);

  DlgList m_anyDlgSubscribers;
  StrDict3<DlgList*> m_dlgSubscribers;
  StrDict3<VarList*> m_varSubscribers;
  IniFile3 m_file;
  StrDict3<bool> m_changed;
};
