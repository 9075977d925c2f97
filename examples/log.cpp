// A C++ program that prints its log and sends it to the service: build/examples/log_cpp "link down"
#include <stdio.h>

#include "client/GDQUdpClient.h"
#include "common/LogPrinter.h"

int main(int argc, char** argv) {
  static Velk::GDQUdpClient client;  // static: the printer keeps a pointer to it
  if (!client.Open("127.0.0.1", "mosk")) {
    perror("GDQUdpClient::Open");
    return 1;
  }
  LogPrinter* const log = LogPrinter::Instance();
  log->m_appName.Set("example");
  log->SetLogToGDQUdp(&client);

  log->Log(Warning, "net", "%s\n", argc > 1 ? argv[1] : "link down");

  const unsigned missing = client.Flush(5000);
  if (missing > 0) fprintf(stderr, "%u lines are not confirmed\n", missing);
  return missing > 0 ? 1 : 0;
}
