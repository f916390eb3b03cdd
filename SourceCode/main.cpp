#include "serviceEntry.h"
#include "utility/threadLoop.h"

int main(int argc, char** argv) {
  int status = parseOptions(argc, argv);
  if (status >= 0) return status;
  displayVersion();
  startupChain();
  parkForever();
}
