/* Closed-loop load generator and collector in one thread: sends lines to a log program and counts the lines
 * that the program forwards.
 *
 *   load raw|call|unix TARGET COLLECTOR-ADDRESS LINES WINDOW COOKIE-HEX
 *
 * raw: each line is an RFC 3164 datagram to UDP 127.0.0.1:TARGET; call: the cookie and a LogMsg call, from
 * port 40000; unix: a datagram to the socket with the path TARGET. At most WINDOW lines are outstanding. If
 * nothing arrives for half a second, these count as lost. Prints one JSON object. */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

enum { kLineBytes = 60, kPeerPort = 40000 };

static double Now(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec + (double)now.tv_nsec * 1e-9;
}

static int CompareDoubles(const void* left, const void* right) {
  const double a = *(const double*)left;
  const double b = *(const double*)right;
  return (a > b) - (a < b);
}

static struct sockaddr_in Endpoint(const char* address, int port) {
  struct sockaddr_in endpoint;
  memset(&endpoint, 0, sizeof endpoint);
  endpoint.sin_family = AF_INET;
  endpoint.sin_port = htons((unsigned short)port);
  inet_pton(AF_INET, address, &endpoint.sin_addr);
  return endpoint;
}

static int OpenCollector(const char* address) {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  const int on = 1;
  const struct timeval patience = {0, 500000};
  const struct sockaddr_in self = Endpoint(address, 514);
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const int buffer = 64 << 20; /* the collector must not lose a line */
  setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &buffer, sizeof buffer);
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  return bind(fd, (const struct sockaddr*)&self, sizeof self) == 0 ? fd : -1;
}

static int OpenTarget(const char* mode, const char* target) {
  if (strcmp(mode, "unix") == 0) {
    struct sockaddr_un path;
    memset(&path, 0, sizeof path);
    path.sun_family = AF_UNIX;
    strncpy(path.sun_path, target, sizeof path.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    return connect(fd, (const struct sockaddr*)&path, sizeof path) == 0 ? fd : -1;
  }
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  const struct sockaddr_in self = Endpoint("127.0.0.1", strcmp(mode, "call") == 0 ? kPeerPort : 0);
  const struct sockaddr_in peer = Endpoint("127.0.0.1", atoi(target));
  if (bind(fd, (const struct sockaddr*)&self, sizeof self) != 0) return -1;
  return connect(fd, (const struct sockaddr*)&peer, sizeof peer) == 0 ? fd : -1;
}

/* Writes the head of every datagram: cookie and call, or an RFC 3164 header. Returns its length. */
static int PutHead(char* out, const char* mode, const char* cookie) {
  if (strcmp(mode, "call") != 0) return sprintf(out, "<134>Nov 25 02:14:10 bench: ");
  for (int i = 0; i < 16; ++i) {
    unsigned byte = 0;
    sscanf(cookie + 2 * i, "%2x", &byte);
    out[i] = (char)byte;
  }
  return 16 + sprintf(out + 16, "LogMsg 1 bench '");
}

int main(int argc, char** argv) {
  if (argc != 7) return 2;
  const char* mode = argv[1];
  const int lines = atoi(argv[4]);
  const int window = atoi(argv[5]);
  const int collector = OpenCollector(argv[3]);
  const int target = OpenTarget(mode, argv[2]);
  if (collector < 0 || target < 0) {
    perror("load");
    return 1;
  }
  char datagram[2048];
  const int head = PutHead(datagram, mode, argv[6]);
  const int isCall = strcmp(mode, "call") == 0;
  double* sentAt = calloc((size_t)lines, sizeof *sentAt);
  double* trips = calloc((size_t)lines, sizeof *trips);
  int sent = 0, arrived = 0, lost = 0;
  const double begin = Now();
  double last = begin;
  while (arrived + lost < lines) {
    while (sent < lines && sent - arrived - lost < window) {
      int length = head + sprintf(datagram + head, "seq=%08d ", sent);
      while (length < head + kLineBytes - 1) datagram[length++] = 'x';
      if (strcmp(mode, "unix") != 0) datagram[length++] = '\n';
      if (isCall) datagram[length++] = '\'';
      sentAt[sent++] = Now();
      if (send(target, datagram, (size_t)length, 0) < 0) perror("send");
    }
    char line[2048];
    const ssize_t got = recv(collector, line, sizeof line - 1, 0);
    if (got <= 0) {
      lost += sent - arrived - lost;
      continue;
    }
    line[got] = '\0';
    const char* mark = strstr(line, "seq=");
    const int index = mark != NULL ? atoi(mark + 4) : -1;
    if (index < 0 || index >= sent || sentAt[index] == 0)
      continue; /* another program's line, or counted already */
    last = Now();
    if (sent == arrived + lost) --lost; /* it was only late */
    trips[arrived++] = last - sentAt[index];
    sentAt[index] = 0;
  }
  if (arrived == 0) return 1;
  qsort(trips, (size_t)arrived, sizeof *trips, CompareDoubles);
  printf("{\"lines\": %d, \"lost\": %d, \"seconds\": %.6f, \"p50_us\": %.1f, \"p99_us\": %.1f}\n", arrived,
         lines - arrived, last - begin, trips[arrived / 2] * 1e6, trips[(int)(arrived * 0.99)] * 1e6);
  return 0;
}
