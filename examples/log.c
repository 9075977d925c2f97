/* Logs one line in C: build/examples/log_c "link down" */
#include <stdio.h>
#include <velk.h>

int main(int argc, char** argv) {
  velk* log = velk_open("127.0.0.1", "mosk", 0);
  if (log == NULL) {
    perror("velk_open");
    return 1;
  }
  velk_log(log, VELK_WARNING, "net", "%s", argc > 1 ? argv[1] : "link down");
  const unsigned missing = velk_flush(log, 5000);
  if (missing > 0) perror("the line is not confirmed");
  velk_close(log);
  return missing > 0 ? 1 : 0;
}
