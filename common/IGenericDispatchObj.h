// Dispatch layer: the sending end of a call.
#pragma once

namespace Velk {

class ArgsBuilder2;

class IGenericDispatchObjBase {
 public:
  // Sends one call. args is an argument text, see ArgsParser. Null counts as empty.
  virtual void Call(const char* name, const char* args) = 0;
  // Starts a call: (object << "LogMsg" << 2 << "net" << "link down").CallObj();
  virtual ArgsBuilder2 operator<<(const char* name) = 0;

 protected:
  ~IGenericDispatchObjBase() = default;
};

class IGenericDispatchObj : public IGenericDispatchObjBase {
 protected:
  ~IGenericDispatchObj() = default;
};

}  // namespace Velk
