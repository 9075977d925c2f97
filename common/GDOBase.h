// Dispatch layer: base of all objects that calls are made on.
#pragma once

#include "common/ArgsBuilder2.h"
#include "common/IGenericDispatchObj.h"

namespace Velk {

// Implements operator<<; a subclass implements Call().
class GDOBase : public IGenericDispatchObj {
 public:
  // The builder points at this object and must not outlive it.
  ArgsBuilder2 operator<<(const char* name) override;

 protected:
  ~GDOBase() = default;
};

}  // namespace Velk
