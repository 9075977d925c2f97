// Dispatch layer: maps call names to member functions of a class.
#pragma once

#include "common/GDOTimerBase.h"
#include "common/StrDict3.h"

namespace Velk {

// Base of a class T with handlers: class Lamp : public GDO<Lamp>. T's constructor adds its handlers. Names
// match without regard to case. No lock: after construction the table is only read.
template <class T>
class GDO : public GDOTimerBase {
 public:
  // False: no such name, or the handler returned false.
  bool Dispatch(const char* name, const IArgsList* args) override {
    const Handler handler = m_handlers.Get(name);
    return handler != nullptr && (static_cast<T*>(this)->*handler)(args);
  }

 protected:
  // Runs on the worker thread. False: the arguments are wrong or the work failed.
  using Handler = bool (T::*)(const IArgsList* args);

  GDO() : m_handlers(false) {}

  void AddHandler(const char* name, Handler handler) {
    m_handlers.Set0(m_handlers.kMaxKeyLength, name, handler);
  }

 private:
  StrDict3<Handler> m_handlers;
};

}  // namespace Velk
