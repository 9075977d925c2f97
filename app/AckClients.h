// Application layer: how far each client's numbered calls have got.
#pragma once

#include <cstdint>

// Remembers a fixed number of clients, since a peer may invent as many names as it likes. A new one replaces
// the one that was not used for the longest time. One thread at a time.
class AckClients {
 public:
  // Some times more than the programs of a device; each takes 72 bytes.
  static constexpr unsigned kMost = 256;
  // Characters. Enough for 128 random bits in hexadecimal, so that no two clients choose the same name.
  static constexpr unsigned kLongestName = 32;

  struct Client {
    char name[kLongestName + 1];
    uint64_t last;     // all numbers up to it were run
    uint64_t refused;  // how many of these calls were refused

    // The table's own.
    uint64_t usedAt;
    Client* next;  // in the chain of its hash
  };

  AckClients() = default;
  AckClients(const AckClients&) = delete;  // the chains point into the object
  AckClients& operator=(const AckClients&) = delete;

  // Null: not known. The client counts as used now. Valid until the next Add().
  Client* Find(const char* name);
  // Makes a client known that Find() does not find, with nothing run. name has at most kLongestName
  // characters.
  Client* Add(const char* name);

 private:
  Client** ChainOf(const char* name);
  Client* TakeOldest();

  Client* m_chains[kMost] = {};
  unsigned m_count = 0;
  uint64_t m_uses = 0;
  // Only the first m_count are in use. The others are not even initialised: that would take memory on every
  // device, whether its programs number their calls or not.
  Client m_clients[kMost];
};
