// Dispatch layer: calls as lines of text, whatever carries the lines.
#pragma once

#include "common/GDOBase.h"
#include "common/Mutex.h"
#include "common/SimpleListDL.h"

namespace Velk {

// A dispatch object whose calls go to remote peers, and the list of local objects that receive what the
// peers call. Any thread may call any operation.
class GDQUdpBase : public GDOBase {
 public:
  static constexpr unsigned kMaxDatagram = 1450;  // passes any common link in one piece
  static constexpr unsigned kCookieSize = 16;     // one MD5 digest, as is a nonce
  static constexpr unsigned kMaxText = kMaxDatagram - kCookieSize;

  GDQUdpBase() = default;
  GDQUdpBase(const GDQUdpBase&) = delete;
  GDQUdpBase& operator=(const GDQUdpBase&) = delete;

  // Sends "name args" with SendMsg. A call that cannot be sent is lost, as any datagram can be.
  void Call(const char* name, const char* args) override;

  // Sends one call text to every peer; false when it is too long to be sent.
  virtual bool SendMsg(const char* text) = 0;

  virtual ~GDQUdpBase() = default;

  // Every later call from a peer is handed to listener too, after those added before it. It is not owned
  // and must be there while calls are received. Adding it again does nothing.
  void AddListener(IGenericDispatchObj* listener);

 protected:
  // Hands one call to every listener. They are called with the list locked: a listener must not add
  // another one, and should only post the call and return.
  void Deliver(const char* name, const char* args);

  // Moves *text to the name at the head of a call text, ends that with a NUL and returns the arguments.
  static const char* SplitCall(char** text);

 private:
  Mutex m_mutex;
  SimpleListDL<IGenericDispatchObj*> m_listeners GUARDED_BY(m_mutex);
};

}  // namespace Velk
