// Dispatch layer: base of objects whose calls run on a queue's worker thread.
#pragma once

#include "common/GDOBase.h"
#include "common/IGenericDispatchQueue.h"
#include "common/IGenericDispatchTarget.h"

namespace Velk {

// Posts every call to itself on the queue, so that handlers never run on the caller's thread. Any thread may
// call. The queue must outlive the object.
class GDOTimerBase : public IGenericDispatchTarget, public GDOBase {
 public:
  GDOTimerBase() = default;
  GDOTimerBase(const GDOTimerBase&) = delete;
  GDOTimerBase& operator=(const GDOTimerBase&) = delete;
  // Cancels pending messages. Does not wait for a call that is being dispatched: destroy the object on the
  // worker thread or while that thread is not running.
  ~GDOTimerBase() override;

  // Without a queue the call is dropped.
  void Call(const char* name, const char* args) override;

  // Cancels this object's messages on the previous queue. Call it before the worker thread starts.
  void AttachQueue(IGenericDispatchQueue* queue);

 protected:
  IGenericDispatchQueue* m_queue = nullptr;  // not owned; null: not attached
};

}  // namespace Velk
