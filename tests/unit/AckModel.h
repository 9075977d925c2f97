// A model of the service's acks: a map of clients.
#pragma once

#include <sstream>

#include "tests/unit/Test.h"

struct AckModel {
  struct Client {
    unsigned long long last = 0;
    unsigned long long refused = 0;
  };

  // Returns the ack. Appends the call to ran if it is the next one, not empty and not refused. Calls that
  // begin with "Unknown" are refused.
  std::string Take(const std::string& text, Lines* ran) {
    std::istringstream in(text);
    std::string word, name, call;
    unsigned long long number = 0;
    in >> word >> name >> number;
    std::getline(in.ignore(), call, '\0');
    const auto known = clients.find(name);
    const unsigned long long last = known != clients.end() ? known->second.last : 0;
    if (number == last + 1) {
      Client& client = clients[name];
      client.last = number;
      const bool isRefused = call.rfind("Unknown", 0) == 0;
      client.refused += isRefused;
      if (!isRefused && !call.empty()) ran->push_back(call);
    }
    const Client client = clients.count(name) != 0 ? clients[name] : Client();
    std::ostringstream answer;
    answer << "Ack " << name << ' ' << client.last << ' ' << number << ' ' << client.refused;
    return answer.str();
  }

  std::map<std::string, Client> clients;
};
