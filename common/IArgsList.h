// Dispatch layer: a call's arguments, as its handler gets them.
#pragma once

namespace Velk {

// One argument. Every argument is a text, which the operations convert. They never fail: what is not a number
// is 0.
class IArg {
 public:
  // NUL-terminated. Valid until the handler returns.
  virtual const char* AsStr() const = 0;
  // Decimal with an optional sign; stops at the first non-digit. Modulo 2^64.
  virtual long long AsInt() const = 0;
  // See strtod(3).
  virtual double AsNum() const = 0;
  // AsInt() truncated to the width of a pointer: pointers are sent as decimal integers.
  virtual void* AsPtr() const = 0;

 protected:
  ~IArg() = default;
};

// The arguments of one call. Valid until the handler returns.
class IArgsList {
 public:
  virtual unsigned int GetCount() const = 0;
  // Null if index >= GetCount().
  virtual const IArg* GetItem(unsigned int index) const = 0;
  // Null only if index > GetCount(). If index == GetCount(), returns an unused argument: its AsStr() is an
  // old text or null. Use GetItem() to test whether an argument exists.
  virtual const IArg* operator[](unsigned int index) const = 0;

 protected:
  ~IArgsList() = default;
};

}  // namespace Velk
