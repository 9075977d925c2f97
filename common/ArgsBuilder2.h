// Dispatch layer: writes the argument text of a call.
#pragma once

#include "common/RefString.h"

namespace Velk {

class IGenericDispatchObjBase;

// Made by a dispatch object's operator<< and filled by those below, in the order of the arguments. A
// temporary of the caller's; one thread at a time. ArgsParser reads what it writes.
class ArgsBuilder2 {
 public:
  // target must outlive the builder. A null name counts as empty.
  ArgsBuilder2(const char* name, IGenericDispatchObjBase* target);

  // Every number is preceded by a blank, so that most argument texts start with one.
  ArgsBuilder2& operator<<(double value);  // fixed notation, six decimals
  ArgsBuilder2& operator<<(int value);
  ArgsBuilder2& operator<<(long long value);
  ArgsBuilder2& operator<<(unsigned long long value);
  // Quoted, so that any text arrives as one argument unchanged. A null text counts as empty.
  ArgsBuilder2& operator<<(const char* text);

  // Hands name and arguments to the target's Call().
  void CallObj();

 private:
  RefString m_name;
  RefString m_args;
  IGenericDispatchObjBase* m_target;  // not owned
};

}  // namespace Velk
