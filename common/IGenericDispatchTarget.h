// Dispatch layer: the receiving end of a call.
#pragma once

#include "common/IArgsList.h"

namespace Velk {

class IGenericDispatchTarget {
 public:
  // Runs one call, on the worker thread. name may be empty; args is never null. False: unknown name, or the
  // handler rejected the arguments or failed.
  virtual bool Dispatch(const char* name, const IArgsList* args) = 0;
  virtual ~IGenericDispatchTarget() = default;
};

}  // namespace Velk
