#include <unistd.h>

#include "serviceEntry.h"

int main(int argc, char** argv) {
  int status = parseOptions(argc, argv);
  if (status >= 0) return status;
  displayVersion();
  startupChain();
  for (;;) sleep(100000);
}
