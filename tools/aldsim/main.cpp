// aldsim: a bus of simulated antenna line devices for the primary station.
#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "aldBus.h"
#include "simLog.h"
#include "simOptions.h"
#include "simPort.h"
#include "simRunner.h"

namespace {

char gLinkPath[PATH_MAX];

// The loop never ends by itself: a signal ends the process, and the link must go with it.
void onSignal(int) {
  if (gLinkPath[0] != '\0') unlink(gLinkPath);
  _exit(0);
}

void catchSignals() {
  struct sigaction action;
  memset(&action, 0, sizeof(action));
  action.sa_handler = onSignal;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGHUP, &action, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  S_SimOptions options;
  std::string error;
  if (SimOptions::parse(argc, argv, options, error) != 0) {
    fprintf(stderr, "aldsim: %s (see --help)\n", error.c_str());
    return 2;
  }
  if (options.help) {
    SimOptions::printHelp(stdout);
    return 0;
  }
  if (options.link.size() >= sizeof(gLinkPath)) {
    fprintf(stderr, "aldsim: link path too long\n");
    return 2;
  }
  // Hold the signals while the link is made, so it can neither outlive the
  // process nor be confused with a file that stood there before.
  catchSignals();
  sigset_t ending, previous;
  sigemptyset(&ending);
  sigaddset(&ending, SIGINT);
  sigaddset(&ending, SIGTERM);
  sigaddset(&ending, SIGHUP);
  sigprocmask(SIG_BLOCK, &ending, &previous);
  SimPort port;
  int result = options.port.empty() ? port.openPty(options.link, error) : port.openTty(options.port, error);
  if (result == 0) strcpy(gLinkPath, port.link().c_str());
  sigprocmask(SIG_SETMASK, &previous, nullptr);
  if (result != 0) {
    fprintf(stderr, "aldsim: %s\n", error.c_str());
    return 1;
  }
  AldBus bus(options.alds, options.seed, options.alwaysLinked);
  SimLog::line("ready " + port.name());
  SimRunner runner(port, bus, options.pace, options.events);
  runner.run();
  return 0;
}
