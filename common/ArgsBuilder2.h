// Dispatch layer: builds the argument text of a call.
#pragma once

#include "common/RefString.h"

namespace Velk {

class IGenericDispatchObjBase;

// Returned by value from a dispatch object's operator<<. The operators below append one argument each;
// ArgsParser reads the result. One thread at a time.
class ArgsBuilder2 {
 public:
  // target must outlive the builder. A null name counts as empty.
  ArgsBuilder2(const char* name, IGenericDispatchObjBase* target);

  // A number always gets a blank in front, even as the first argument.
  ArgsBuilder2& operator<<(double value);  // fixed notation, six decimals
  ArgsBuilder2& operator<<(int value);
  ArgsBuilder2& operator<<(long long value);
  ArgsBuilder2& operator<<(unsigned long long value);
  // Quotes the text, so that it arrives unchanged as one argument. Null counts as empty.
  ArgsBuilder2& operator<<(const char* text);

  // Passes name and arguments to the target's Call().
  void CallObj();

 private:
  RefString m_name;
  RefString m_args;
  IGenericDispatchObjBase* m_target;  // not owned
};

}  // namespace Velk
