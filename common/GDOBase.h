// Dispatch layer: base of all that calls can be made on.
#pragma once

#include "common/ArgsBuilder2.h"
#include "common/IGenericDispatchObj.h"

namespace Velk {

// Lets a call be written as a chain; how it is sent is left to Call().
class GDOBase : public IGenericDispatchObj {
 public:
  // The builder points at this object and must not outlive it.
  ArgsBuilder2 operator<<(const char* name) override;

 protected:
  ~GDOBase() = default;
};

}  // namespace Velk
