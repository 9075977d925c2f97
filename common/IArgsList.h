// Dispatch layer: what a handler sees of the arguments of its call.
#pragma once

namespace Velk {

// One argument. Every argument is a text; the readers interpret it on demand and never fail: what is not a
// number reads as 0.
class IArg {
 public:
  // NUL-terminated. Valid until the handler returns.
  virtual const char* AsStr() const = 0;
  // Decimal with an optional sign; stops at the first non-digit. Wraps modulo 2^64.
  virtual long long AsInt() const = 0;
  // As strtod(3) reads it.
  virtual double AsNum() const = 0;
  // The integer, cut to the width of a pointer: pointers travel as decimal integers.
  virtual void* AsPtr() const = 0;

 protected:
  ~IArg() = default;
};

// The arguments of one call. Valid until the handler returns.
class IArgsList {
 public:
  virtual unsigned int GetCount() const = 0;
  // Null when index is not below the count.
  virtual const IArg* GetItem(unsigned int index) const = 0;
  // Null only when index is above the count. The index that equals the count gives the slot after the last
  // argument, with whatever text (perhaps null) it last held; GetItem() is the one to test with.
  virtual const IArg* operator[](unsigned int index) const = 0;

 protected:
  ~IArgsList() = default;
};

}  // namespace Velk
