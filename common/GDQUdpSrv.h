// Transport layer: the call channel over UDP, between this process and every peer that knows the password.
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

// The server of the channel. A peer sends "CONN", gets a 16-byte nonce, and from then on starts each of its
// datagrams with the cookie, the MD5 of nonce and password. The call text follows it. What one peer calls
// goes to the listeners and to every other admitted peer.
//
// One thread runs ReceiveTask. Any thread may use SendMsg, SendTo and Call meanwhile. There is no lock, see
// PeerTable.
class GDQUdpSrv : public GDQUdpBase {
 public:
  GDQUdpSrv() = default;
  ~GDQUdpSrv() override = default;

  // Listens on the UDP port of every interface. The password is copied, and only when that worked.
  bool Open(const char* password, unsigned short port);
  // No thread may receive or send any more.
  void Close() { m_socket.Close(); }

  // Serves peers. Returns only when there is no socket to receive from.
  void ReceiveTask();

  // False when the text is longer than kMaxText. An empty text sends each peer its bare cookie.
  bool SendMsg(const char* text) override;

  // Sends text to this endpoint alone, if it is admitted. Any thread, as SendMsg. Never waits for a full
  // socket buffer. False: not sent.
  bool SendTo(const InetAddress2& to, const char* text);

  // The peer whose call is being handed to a listener. For the listener's Call() only.
  const InetAddress2& Sender() const { return m_sender; }

  // The steps of ReceiveTask, for its thread only. A packet has room for a NUL after its length and is
  // written to: relaying replaces the cookie, parsing ends the name.
  void HandleDatagram(const InetAddress2& from, unsigned char* packet, int length);
  // Notes the sender as a peer not yet admitted and sends it a nonce.
  void HandleConnect(const InetAddress2& from);
  // Whether the 16 bytes are the cookie of the sender, who is then admitted.
  bool IsValid(const InetAddress2& from, unsigned char* cookie);
  // Relays and delivers the call of an admitted peer. packet[length] is NUL.
  void HandlePacket(const InetAddress2& from, unsigned char* packet, unsigned int length);

 protected:
  // Called by ReceiveTask after each few datagrams; what it waits here, the next ones wait in the socket's
  // buffer. isEmpty: none was there when it last looked.
  virtual void AfterBatch(bool isEmpty) { static_cast<void>(isEmpty); }

  // What the tests replace.

  // In seconds, see time(2).
  virtual time_t Now() const;
  // Sends one datagram and returns its size, or -1. A full socket buffer counts as a failure unless mayWait.
  virtual int Send(const void* packet, unsigned size, const InetAddress2& to, bool mayWait);

 private:
  void SendPacket(const PeerTable::Peer& peer, unsigned char* packet, unsigned size);

  UdpSocket3 m_socket;
  SimpleString m_password;
  PeerTable m_peers;
  InetAddress2 m_sender{0, 0};
};

}  // namespace Velk
