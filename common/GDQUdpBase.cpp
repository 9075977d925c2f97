#include "common/GDQUdpBase.h"

#include <ctype.h>

#include "common/ScopedLock.h"
#include "common/SimpleString.h"

namespace Velk {

void GDQUdpBase::AddListener(IGenericDispatchObj* listener) {
  if (listener == nullptr) return;
  const ScopedLock lock(m_mutex);
  for (const auto* node = m_listeners.Head(); node != nullptr; node = node->m_next) {
    if (node->m_value == listener) return;
  }
  m_listeners.Append(listener);
}

const char* GDQUdpBase::SplitCall(char** text) {
  char* name = *text;
  while (isspace(static_cast<unsigned char>(*name))) ++name;
  char* args = name;
  while (*args != '\0' && !isspace(static_cast<unsigned char>(*args))) ++args;
  if (*args != '\0') *args++ = '\0';
  *text = name;
  return args;
}

void GDQUdpBase::Deliver(const char* name, const char* args) {
  const ScopedLock lock(m_mutex);
  for (const auto* node = m_listeners.Head(); node != nullptr; node = node->m_next) {
    node->m_value->Call(name, args);
  }
}

void GDQUdpBase::Call(const char* name, const char* args) {
  SimpleString text(256, 256);
  text.Append(name).Append(' ').Append(args);
  SendMsg(text.Str());
}

}  // namespace Velk
