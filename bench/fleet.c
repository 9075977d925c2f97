/* Simulates many devices that send to one collector, each from its own address.
 *
 *   fleet COLLECTOR-ADDRESS DEVICES LINES-PER-SECOND LINES
 *
 * Device i has the address 127.1.(i / 250).(1 + i % 250) and sends from port 514, as the service does. The
 * modules are net, app, power and Syslog at random. LINES and LINES-PER-SECOND (0: no limit) are fleet
 * totals. Prints one JSON object. */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

static double Now(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec + (double)now.tv_nsec * 1e-9;
}

static struct sockaddr_in Endpoint(const char* address) {
  struct sockaddr_in endpoint;
  memset(&endpoint, 0, sizeof endpoint);
  endpoint.sin_family = AF_INET;
  endpoint.sin_port = htons(514);
  inet_pton(AF_INET, address, &endpoint.sin_addr);
  return endpoint;
}

static int OpenDevice(int index, const struct sockaddr_in* collector) {
  char address[32];
  sprintf(address, "127.1.%d.%d", index / 250 % 256, 1 + index % 250);
  const struct sockaddr_in self = Endpoint(address);
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  if (fd < 0 || bind(fd, (const struct sockaddr*)&self, sizeof self) != 0) return -1;
  return connect(fd, (const struct sockaddr*)collector, sizeof *collector) == 0 ? fd : -1;
}

static int SendLine(int fd, int number) {
  static const char* const kModules[] = {"net", "app", "power", "Syslog"};
  char line[128];
  const int length = sprintf(line, "<134>%s.Info: line %08d of a fleet, as long as lines are in most logs\n",
                             kModules[rand() % 4], number);
  return send(fd, line, (size_t)length, 0) == length;
}

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  const struct sockaddr_in collector = Endpoint(argv[1]);
  const int count = atoi(argv[2]);
  const double rate = atof(argv[3]);
  const int lines = atoi(argv[4]);
  const struct rlimit files = {(rlim_t)count + 100, (rlim_t)count + 100};
  setrlimit(RLIMIT_NOFILE, &files);
  int* devices = calloc((size_t)count, sizeof *devices);
  for (int i = 0; i < count; ++i) {
    devices[i] = OpenDevice(i, &collector);
    if (devices[i] < 0) {
      perror("fleet");
      return 1;
    }
  }
  int sent = 0, refused = 0;
  const double begin = Now();
  while (sent < lines) {
    const double due = rate > 0 ? (Now() - begin) * rate : lines;
    for (; sent < lines && sent < due; ++sent) refused += !SendLine(devices[sent % count], sent);
    if (sent < lines) usleep(500);
  }
  printf("{\"sent\": %d, \"refused\": %d, \"seconds\": %.6f}\n", sent - refused, refused, Now() - begin);
  return 0;
}
