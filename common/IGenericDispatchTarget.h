// Dispatch layer: the receiving end of a call.
#pragma once

#include "common/IArgsList.h"

namespace Velk {

class IGenericDispatchTarget {
 public:
  // Runs the call. Called on the queue's thread only, one call at a time. name may be empty, args may not
  // be null. False: unknown name, or the handler rejects the arguments or failed.
  virtual bool Dispatch(const char* name, const IArgsList* args) = 0;
  virtual ~IGenericDispatchTarget() = default;
};

}  // namespace Velk
