// The service as a client sees it, with every fault that a network and a restart can bring.
#pragma once

#include "common/UdpSocket3.h"
#include "tests/unit/Peers.h"

class StubService {
 public:
  using Clock = std::chrono::steady_clock;

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
    Restart(0);
  }

  // Forgets all peers, and what it took in the last unrunMs, which it had no time to run.
  void Restart(unsigned unrunMs) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_peers.clear();
    while (!m_lines.empty() && Clock::now() - m_lines.back().second < std::chrono::milliseconds(unrunMs))
      m_lines.pop_back();
  }

  // All call texts taken, less white space at the end; probes left out.
  std::vector<std::string> Lines() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> lines;
    for (const auto& [text, time] : m_lines) lines.push_back(text);
    return lines;
  }

  std::set<unsigned short> Admitted() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::set<unsigned short> ports;
    for (const auto& [port, peer] : m_peers) {
      if (peer.isValid) ports.insert(port);
    }
    return ports;
  }

  void Call(const std::string& text) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Relay(text, 0);
  }

  std::atomic<unsigned> m_faultPercent{0};    // of datagrams lost, doubled and delayed, each
  std::atomic<bool> m_answersRubbish{false};  // to everything
  std::atomic<unsigned short> m_deafPort{0};  // a cookie from there never matches
  std::atomic<bool> m_holdsReceipts{false};   // of calls, until false again
  std::atomic<bool> m_losesCalls{false};      // but not probes
  std::atomic<unsigned> m_datagrams{0};       // received
  std::atomic<unsigned> m_connectPorts{0};    // that ever sent CONN

 private:
  struct Peer {
    std::string cookie;
    bool isValid = false;
  };

  void Serve() {
    char bytes[2000];
    InetAddress2 from(0, 0);
    while (!m_end) {
      const bool isReadable = m_socket.WaitForRead(1) == 1;
      const int size = isReadable ? m_socket.Read(bytes, sizeof bytes, &from) : -1;
      const std::lock_guard<std::mutex> lock(m_mutex);
      if (size >= 0) Receive(std::string(bytes, static_cast<size_t>(size)), from.GetPort());
      if (isReadable || m_holdsReceipts) continue;
      for (const auto& [datagram, port] : m_delayed) SendNow(datagram, port);
      m_delayed.clear();
    }
  }

  void Receive(const std::string& datagram, unsigned short port) {
    ++m_datagrams;
    const unsigned chance = static_cast<unsigned>(m_random() % 100);
    if (chance < m_faultPercent) return;
    Handle(datagram, port);
    if (chance < 2 * m_faultPercent) Handle(datagram, port);
  }

  void Handle(const std::string& datagram, unsigned short port) {
    if (m_answersRubbish) {
      for (const size_t size : {0, 15, 16, 17, 1450, 1451})
        Send(std::string(size, static_cast<char>(m_random())), port);
      return;
    }
    if (datagram == "CONN") {
      m_ports.insert(port);
      m_connectPorts = static_cast<unsigned>(m_ports.size());
      const std::string nonce(16, static_cast<char>(port));  // as the real one's within the same second
      m_peers[port] = {Md5(nonce + "mosk"), false};
      return Send(nonce, port);
    }
    const auto peer = m_peers.find(port);
    if (peer == m_peers.end() || port == m_deafPort || datagram.compare(0, 16, peer->second.cookie) != 0)
      return;
    peer->second.isValid = true;
    const std::string text = datagram.substr(16);
    const size_t end = text.find_last_not_of(" \t");
    if (end != std::string::npos && m_losesCalls) return;
    if (!text.empty()) Relay(text, port);
    if (end != std::string::npos) m_lines.emplace_back(text.substr(0, end + 1), Clock::now());
  }

  void Relay(const std::string& text, unsigned short sender) {
    for (const auto& [port, peer] : m_peers) {
      if (peer.isValid && port != sender) Send(peer.cookie + text, port);
    }
  }

  void Send(const std::string& datagram, unsigned short port) {
    const unsigned chance = static_cast<unsigned>(m_random() % 100);
    if (chance < m_faultPercent) return;
    if (chance < 2 * m_faultPercent || (m_holdsReceipts && datagram.find("Call") != std::string::npos)) {
      m_delayed.emplace_back(datagram, port);
      return;
    }
    SendNow(datagram, port);
    if (chance < 3 * m_faultPercent) SendNow(datagram, port);
  }

  void SendNow(const std::string& datagram, unsigned short port) {
    const InetAddress2 to(INADDR_LOOPBACK, port);
    m_socket.Write(datagram.data(), static_cast<long>(datagram.size()), &to);
  }

  unsigned short m_port;
  UdpSocket3 m_socket;
  std::thread m_thread;
  std::atomic<bool> m_end{false};
  std::mutex m_mutex;  // guards what follows
  std::mt19937 m_random{1};
  std::map<unsigned short, Peer> m_peers;
  std::set<unsigned short> m_ports;
  std::vector<std::pair<std::string, Clock::time_point>> m_lines;
  std::vector<std::pair<std::string, unsigned short>> m_delayed;
};
