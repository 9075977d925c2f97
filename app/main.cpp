// Application layer: the entry.
#include "app/Service.h"

int main(int argc, char** argv) {
  return RunService(ServiceValues{}, argc, argv);
}
