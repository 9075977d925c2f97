// Dispatch layer: calls as texts, independent of the transport.
#pragma once

#include "common/GDOBase.h"
#include "common/Mutex.h"
#include "common/SimpleListDL.h"

namespace Velk {

// A dispatch object that sends its calls to remote peers and passes the peers' calls to local listeners. Any
// thread may call any operation.
class GDQUdpBase : public GDOBase {
 public:
  static constexpr unsigned kMaxDatagram = 1450;  // fits one packet on common links
  static constexpr unsigned kCookieSize = 16;     // an MD5 digest; also the size of a nonce
  static constexpr unsigned kMaxText = kMaxDatagram - kCookieSize;

  GDQUdpBase() = default;
  GDQUdpBase(const GDQUdpBase&) = delete;
  GDQUdpBase& operator=(const GDQUdpBase&) = delete;

  // Sends "name args" with SendMsg(). A call that cannot be sent is lost.
  void Call(const char* name, const char* args) override;

  // Sends one call to every peer. False: it is too long. GDQUdpClient adds more reasons.
  virtual bool SendMsg(const char* text) = 0;

  virtual ~GDQUdpBase() = default;

  // Passes all later calls from peers to listener, which is not owned and must stay valid while calls are
  // received. Listeners are called in the order they were added. Adding one twice has no effect.
  void AddListener(IGenericDispatchObj* listener);

 protected:
  // Passes one call to every listener, with the list locked: a listener must not call AddListener(), and
  // should only post the call and return.
  void Deliver(const char* name, const char* args);

  // Splits a call in place: moves *text to the name, terminates that with a NUL, returns the arguments.
  static const char* SplitCall(char** text);

 private:
  Mutex m_mutex;
  SimpleListDL<IGenericDispatchObj*> m_listeners GUARDED_BY(m_mutex);
};

}  // namespace Velk
