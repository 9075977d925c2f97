// Dispatch layer: base of the objects whose calls run on a queue's thread.
#pragma once

#include "common/GDOBase.h"
#include "common/IGenericDispatchQueue.h"
#include "common/IGenericDispatchTarget.h"

namespace Velk {

// Posts every call made on it, addressed to itself, so that a handler never runs on the caller's thread.
// Any thread may call. The queue must outlive the object.
class GDOTimerBase : public IGenericDispatchTarget, public GDOBase {
 public:
  GDOTimerBase() = default;
  GDOTimerBase(const GDOTimerBase&) = delete;
  GDOTimerBase& operator=(const GDOTimerBase&) = delete;
  // Takes back what is pending. It cannot wait for a call that is being dispatched, so destroy the object
  // on the queue's thread, or while that thread does not run.
  ~GDOTimerBase() override;

  // Dropped silently while there is no queue.
  void Call(const char* name, const char* args) override;

  // Takes back what is pending on the queue before. Attach before the queue's thread starts.
  void AttachQueue(IGenericDispatchQueue* queue);

 protected:
  IGenericDispatchQueue* m_queue = nullptr;  // not owned, null: not attached
};

}  // namespace Velk
