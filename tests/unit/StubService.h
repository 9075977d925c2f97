// A stub of the service, for tests of clients. It can drop calls, restart, and answer with rubbish.
#pragma once

#include "common/UdpSocket3.h"
#include "tests/unit/AckModel.h"
#include "tests/unit/Peers.h"

class StubService {
 public:
  StubService() {
    static unsigned short next = static_cast<unsigned short>(40000 + getpid() % 9000);
    do {
      m_port = next++;
    } while (!Start());
  }
  ~StubService() { Stop(); }

  std::string Address() const { return "127.0.0.1:" + std::to_string(m_port); }

  bool Start() {
    if (!m_socket.Open() || !m_socket.Bind(m_port, INADDR_LOOPBACK)) return false;
    m_end = false;
    m_thread = std::thread([this] { Serve(); });
    return true;
  }
  void Stop() {
    m_end = true;
    if (m_thread.joinable()) m_thread.join();
    m_socket.Close();
    Forget();
  }

  // Forgets all peers and clients, as a restart does, but not the calls that were run.
  void Forget() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_peers.clear();
    m_acks.clients.clear();
  }

  // Returns all calls that were run.
  Lines Ran() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
  }

  std::set<unsigned short> Admitted() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::set<unsigned short> ports;
    for (const auto& [port, peer] : m_peers) {
      if (peer.isValid) ports.insert(port);
    }
    return ports;
  }

  // Relays a call to every admitted peer.
  void Call(const std::string& text) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& [port, peer] : m_peers) {
      if (peer.isValid) Send(peer.cookie + text, port);
    }
  }

  std::atomic<bool> m_knowsAcks{true};
  std::atomic<bool> m_isBlocked{false};       // drops all calls
  std::atomic<bool> m_answersRubbish{false};  // to every datagram
  std::atomic<unsigned short> m_deafPort{0};  // cookies from this port never match
  std::atomic<unsigned> m_wrongCookies{0};    // received
  std::atomic<unsigned> m_connects{0};        // received
  std::atomic<unsigned> m_connectPorts{0};    // number of ports that sent CONN

 private:
  struct Peer {
    std::string cookie;
    bool isValid = false;
  };

  void Serve() {
    char bytes[2000];
    InetAddress2 from(0, 0);
    while (!m_end) {
      if (m_socket.WaitForRead(1) != 1) continue;
      const int size = m_socket.Read(bytes, sizeof bytes, &from);
      const std::lock_guard<std::mutex> lock(m_mutex);
      if (size >= 0) Handle(std::string(bytes, static_cast<size_t>(size)), from.GetPort());
    }
  }

  void Handle(const std::string& datagram, unsigned short port) {
    if (m_answersRubbish) {
      for (const size_t size : {0, 15, 16, 17, 1450, 1451})
        Send(std::string(size, static_cast<char>(m_random())), port);
      return;
    }
    if (datagram == "CONN") {
      ++m_connects;
      m_ports.insert(port);
      m_connectPorts = static_cast<unsigned>(m_ports.size());
      const std::string nonce(16, static_cast<char>(m_random()));
      m_peers[port] = {Md5(nonce + "mosk"), false};
      return Send(nonce, port);
    }
    const auto peer = m_peers.find(port);
    if (peer == m_peers.end()) return;
    if (port == m_deafPort || datagram.compare(0, 16, peer->second.cookie) != 0) {
      ++m_wrongCookies;
      return;
    }
    peer->second.isValid = true;
    const std::string text = datagram.substr(16);
    if (m_isBlocked || text.empty()) return;
    if (!m_knowsAcks || text.rfind("WithAck ", 0) != 0) {
      m_lines.push_back(text);
    } else {
      Send(peer->second.cookie + m_acks.Take(text, &m_lines), port);
    }
  }

  void Send(const std::string& datagram, unsigned short port) {
    const InetAddress2 to(INADDR_LOOPBACK, port);
    m_socket.Write(datagram.data(), static_cast<long>(datagram.size()), &to);
  }

  unsigned short m_port;
  UdpSocket3 m_socket;
  std::thread m_thread;
  std::atomic<bool> m_end{false};
  std::mutex m_mutex;  // guards the members below
  std::mt19937 m_random{1};
  std::map<unsigned short, Peer> m_peers;
  std::set<unsigned short> m_ports;
  AckModel m_acks;
  Lines m_lines;
};
