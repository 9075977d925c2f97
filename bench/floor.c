/* The floor of the comparison: the cost of the kernel alone. One thread receives a datagram, writes it to a
 * file and sends it to the collector, three system calls per line:
 *
 *   floor PORT FILE COLLECTOR-ADDRESS [two]
 *
 * two: with two threads. One receives, another writes and sends, so that peers are served while that
 * blocks. */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <pthread.h>
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

struct Line {
  ssize_t length;
  char text[2048];
};

enum { kLines = 512 };

static struct {
  pthread_mutex_t mutex;
  pthread_cond_t added;
  unsigned first, next; /* counters; modulo kLines they index lines[] */
  struct Line lines[kLines];
} pending = {.mutex = PTHREAD_MUTEX_INITIALIZER, .added = PTHREAD_COND_INITIALIZER};

static int in, out, file;
static struct sockaddr_in collector;

static void Store(const struct Line* line) {
  if (write(file, line->text, (size_t)line->length) < 0) _exit(1);
  sendto(out, line->text, (size_t)line->length, 0, (const struct sockaddr*)&collector, sizeof collector);
}

static void* StorePending(void* unused) {
  pthread_mutex_lock(&pending.mutex);
  for (;; ++pending.first) {
    while (pending.first == pending.next) pthread_cond_wait(&pending.added, &pending.mutex);
    const struct Line* line = &pending.lines[pending.first % kLines];
    pthread_mutex_unlock(&pending.mutex);
    Store(line);
    pthread_mutex_lock(&pending.mutex); /* taken once per line: to free this one and find the next */
  }
  return unused;
}

static void HandOver(struct Line* line) {
  pthread_mutex_lock(&pending.mutex);
  if (pending.next - pending.first < kLines) {
    struct Line* free_line = &pending.lines[pending.next++ % kLines];
    free_line->length = line->length;
    memcpy(free_line->text, line->text, (size_t)line->length);
    pthread_cond_signal(&pending.added);
  }
  pthread_mutex_unlock(&pending.mutex);
}

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5) return 2;
  const struct sockaddr_in self = Endpoint("127.0.0.1", argv[1]);
  collector = Endpoint(argv[3], "514");
  in = socket(AF_INET, SOCK_DGRAM, 0);
  out = socket(AF_INET, SOCK_DGRAM, 0);
  file = open(argv[2], O_WRONLY | O_CREAT | O_APPEND, 0600);
  if (in < 0 || out < 0 || file < 0 || bind(in, (const struct sockaddr*)&self, sizeof self) != 0) {
    perror("floor");
    return 1;
  }
  pthread_t thread;
  const int two = argc == 5;
  if (two && pthread_create(&thread, NULL, StorePending, NULL) != 0) return 1;
  struct Line line;
  for (;;) {
    line.length = recv(in, line.text, sizeof line.text, 0);
    if (line.length <= 0) continue;
    if (two) {
      HandOver(&line);
    } else {
      Store(&line);
    }
  }
}
