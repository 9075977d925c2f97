// Configuration layer: the process-wide store of named variables.
#pragma once

#include "common/IniFile3.h"
#include "common/SimpleListDL.h"
#include "common/StrDict3.h"

// Keeps the variables as keys of section "Data" of one file, flags those changed since the last Save(), and
// notifies subscribers of variables and dialogs. Not thread-safe: after start-up only one thread may call.
// Null and empty names are never found, flagged or subscribed to, but SetVar() stores an empty one.
//
// Case does not matter in the file, but does for change flags and subscriptions: setting "Name" also changes
// the value of "name", but flags only "Name".
//
// A callback may set variables, subscribe, and unsubscribe any callback, including itself.
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

  // The only instance, created on first use. Never destroyed: a thread may still use it during exit(3).
  static AppData* GetInstance();
  AppData(const AppData&) = delete;
  AppData& operator=(const AppData&) = delete;

  // See IniFile3::Load(). Keeps the change flags. 0: failed.
  int Load(const char* path);
  // Writes the file that was last loaded. Clears all change flags, even if writing fails or no file was
  // loaded. Failures are not reported.
  void Save();

  // Returns def if the variable is absent or null. The text is valid until the variable is set or a file is
  // loaded.
  const char* GetVar(const char* name, const char* def) const;
  // Sets a variable, and its change flag if the value differs; unset counts as "". Calls no subscriber.
  void SetVar(const char* name, const char* value);
  // Asks the variable's subscribers, oldest first, and sets it if all agree. False: one refused; later ones
  // are not asked and nothing changes.
  bool OnVarChanged(const char* name, const char* value);

  bool IsVarChanged(const char* name) const { return m_changed.Get(name); }
  void SetVarChanged(const char* name, bool flag);

  // A callback subscribed twice is called twice. Unsubscribing removes all entries with that callback; the
  // user pointer does not matter.
  void SubscribeVarChanges(const char* name, VarCallback callback, void* user);
  void UnsubscribeVarChanges(const char* name, VarCallback callback);
  void SubscribeDlgChanges(const char* dialog, DlgCallback callback, void* user);
  void UnsubscribeDlgChanges(const char* dialog, DlgCallback callback);
  void SubscribeAnyDlgChanges(DlgCallback callback, void* user);
  void UnsubscribeAnyDlgChanges(DlgCallback callback);

  // Call the dialog's subscribers, then the subscribers to any dialog, which always get flag true.
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
