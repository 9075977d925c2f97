// Transport layer: the server of the UDP call channel, for peers that know the password.
#pragma once

#include <time.h>

#include "common/GDQUdpBase.h"
#include "common/InetAddress2.h"
#include "common/PeerTable.h"
#include "common/SimpleString.h"
#include "common/UdpSocket3.h"

namespace Velk {

// Logs "label:" and 16 bytes in hexadecimal, as Trace.
void logNonce(const char* label, unsigned char* bytes);

// A peer sends "CONN" and receives a 16-byte nonce. Each later datagram is the cookie (the MD5 of nonce and
// password) followed by a call. A call goes to the listeners and to every other admitted peer.
//
// One thread, the receive thread, runs ReceiveTask(). Any thread may send at the same time, with SendMsg(),
// SendTo() and Call(). There is no lock, see PeerTable.
class GDQUdpSrv : public GDQUdpBase {
 public:
  GDQUdpSrv() = default;
  ~GDQUdpSrv() override = default;

  // Listens on the UDP port on all interfaces. Copies the password. False with errno.
  bool Open(const char* password, unsigned short port);
  // No thread may be receiving or sending.
  void Close() { m_socket.Close(); }

  // Serves peers. Returns only if no socket is open.
  void ReceiveTask();

  // False: the text is longer than kMaxText. An empty text sends each peer its bare cookie.
  bool SendMsg(const char* text) override;

  // Sends text to this endpoint only, if it is admitted. Never blocks. False: not sent.
  bool SendTo(const InetAddress2& to, const char* text);

  // The peer whose call is being delivered. Valid only inside a listener's Call().
  const InetAddress2& Sender() const { return m_sender; }

  // The steps of ReceiveTask(), for the receive thread only. They modify the packet: relaying replaces the
  // cookie, parsing adds NULs. It needs room for one byte after length.
  void HandleDatagram(const InetAddress2& from, unsigned char* packet, int length);
  // Records the sender as a peer that is not admitted, and sends it a nonce.
  void HandleConnect(const InetAddress2& from);
  // Checks the sender's 16-byte cookie, and admits the sender if it is right.
  bool IsValid(const InetAddress2& from, unsigned char* cookie);
  // Relays and delivers the call of an admitted peer. packet[length] must be NUL.
  void HandlePacket(const InetAddress2& from, unsigned char* packet, unsigned int length);

 protected:
  // ReceiveTask() calls this after each batch of datagrams. While it blocks, further datagrams wait in the
  // socket's buffer. isDrained: no more datagrams were waiting.
  virtual void AfterBatch(bool isDrained) { static_cast<void>(isDrained); }

  // Tests override these two.

  // time(2).
  virtual time_t Now() const;
  // Sends one datagram and returns its size, or -1. If the socket's buffer is full, blocks if mayWait is true
  // and fails otherwise.
  virtual int Send(const void* packet, unsigned size, const InetAddress2& to, bool mayWait);

 private:
  void SendPacket(const PeerTable::Peer& peer, unsigned char* packet, unsigned size);

  UdpSocket3 m_socket;
  SimpleString m_password;
  PeerTable m_peers;
  InetAddress2 m_sender{0, 0};
};

}  // namespace Velk
