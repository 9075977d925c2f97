#include "common/GDOTimerBase.h"

namespace Velk {

GDOTimerBase::~GDOTimerBase() {
  if (m_queue != nullptr) m_queue->CancelAllMessages(this);
}

void GDOTimerBase::Call(const char* name, const char* args) {
  if (m_queue != nullptr) m_queue->Post(this, name, args);
}

void GDOTimerBase::AttachQueue(IGenericDispatchQueue* queue) {
  if (m_queue != nullptr) m_queue->CancelAllMessages(this);
  m_queue = queue;
}

}  // namespace Velk
