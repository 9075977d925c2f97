// Application layer: the last number done for each client.
#pragma once

#include <cstdint>

// Remembers a fixed number of clients, since a peer may invent any number of names. A new client replaces the
// least recently used one. One thread at a time.
class AckClients {
 public:
  // Several times the number of programs on a device; a client takes 72 bytes.
  static constexpr unsigned kMost = 256;
  // Characters: enough for 128 random bits in hexadecimal, so that no two clients choose the same name.
  static constexpr unsigned kLongestName = 32;

  struct Client {
    char name[kLongestName + 1];
    uint64_t last;     // all numbers up to this one were run or refused
    uint64_t refused;  // how many of them were refused

    // For AckClients only.
    uint64_t usedAt;
    Client* next;  // in the chain of its hash
  };

  AckClients() = default;
  AckClients(const AckClients&) = delete;  // the chains point into the object
  AckClients& operator=(const AckClients&) = delete;

  // Returns the client and marks it as used; null: not known. Valid until the next Add().
  Client* Find(const char* name);
  // Adds a client that Find() does not know. name has at most kLongestName characters.
  Client* Add(const char* name);

 private:
  Client** ChainOf(const char* name);
  Client* TakeOldest();

  Client* m_chains[kMost] = {};
  unsigned m_count = 0;
  uint64_t m_uses = 0;
  // Only the first m_count are in use. The rest is left uninitialised, so it takes no memory until needed.
  Client m_clients[kMost];
};
