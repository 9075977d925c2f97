#include "common/GDOBase.h"

namespace Velk {

ArgsBuilder2 GDOBase::operator<<(const char* name) {
  return ArgsBuilder2(name, this);
}

}  // namespace Velk
