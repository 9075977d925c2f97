/* The floor of the comparison: what the kernel alone costs. One thread that does nothing but receive a
 * datagram, write it to a file and send it to the collector, three system calls a line: floor PORT FILE
 * COLLECTOR-ADDRESS */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

static struct sockaddr_in Endpoint(const char* address, const char* port) {
  struct sockaddr_in endpoint;
  memset(&endpoint, 0, sizeof endpoint);
  endpoint.sin_family = AF_INET;
  endpoint.sin_port = htons((unsigned short)atoi(port));
  inet_pton(AF_INET, address, &endpoint.sin_addr);
  return endpoint;
}

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const struct sockaddr_in self = Endpoint("127.0.0.1", argv[1]);
  const struct sockaddr_in collector = Endpoint(argv[3], "514");
  const int in = socket(AF_INET, SOCK_DGRAM, 0);
  const int out = socket(AF_INET, SOCK_DGRAM, 0);
  const int file = open(argv[2], O_WRONLY | O_CREAT | O_APPEND, 0600);
  if (in < 0 || out < 0 || file < 0 || bind(in, (const struct sockaddr*)&self, sizeof self) != 0) {
    perror("floor");
    return 1;
  }
  char line[2048];
  for (;;) {
    const ssize_t length = recv(in, line, sizeof line, 0);
    if (length <= 0) continue;
    if (write(file, line, (size_t)length) < 0) return 1;
    sendto(out, line, (size_t)length, 0, (const struct sockaddr*)&collector, sizeof collector);
  }
}
