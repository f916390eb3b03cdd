// pkstatus: shows the status block of the pylonkeeper service to the board's other
// processes and to a person at the console, and tells monitoring scripts by its exit
// status whether the service is alive and whether a bus alarm is up.
#include <signal.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "aisgAppLayer/statusShareMem.h"
#include "common/configFile.h"
#include "utility/debugTrace.h"

namespace {

enum E_ExitStatus {
  E_EXIT_ALIVE = 0,
  E_EXIT_ALARM = 1,
  E_EXIT_NOT_ALIVE = 2,
  E_EXIT_NO_BLOCK = 3,
  E_EXIT_USAGE = 4,
};

constexpr long kPollMs = 100;

const char* const kHelp =
    "Usage: pkstatus [--alive SECONDS] [--watch [--for SECONDS]] [--help]\n"
    "\n"
    "Shows the status block of the pylonkeeper service: the run step, the life\n"
    "counter and the two bus alarms. The block's key is ShareMemKey of the\n"
    "configuration file %s (default 0x400009);\n"
    "the block is attached read-only and never changed.\n"
    "\n"
    "  --alive SECONDS  wait up to SECONDS (default 3) for the life counter to move;\n"
    "                   the service counts once per cycle, about once a second;\n"
    "                   a cycle lasts as long as its step, and a scan waits a\n"
    "                   second for each unanswered probe: with -c give more\n"
    "                   than the longest scan of the bus\n"
    "  --watch          print a line at the start and one at every change, until\n"
    "                   interrupted (Ctrl-C)\n"
    "  --for SECONDS    with --watch: stop after SECONDS\n"
    "  --help           print this text\n"
    "\n"
    "Run steps: 1 device scan, 2 get base info, 3 alds poll, 4 idle.\n"
    "rxAlarm 1: nothing received from the bus for 30 cycles or more;\n"
    "txAlarm 1: nothing sent to the bus for 30 cycles or more.\n"
    "\n"
    "Exit status:\n"
    "  0  alive, no alarm\n"
    "  1  alive, an alarm is up\n"
    "  2  not alive: the counter did not move within the --alive time\n"
    "     (with --watch: not in the last SECONDS of the watch)\n"
    "  3  no status block\n"
    "  4  wrong usage\n";

struct S_Options {
  double aliveSeconds = 3.0;
  bool watch = false;
  double forSeconds = -1.0;  // negative: until interrupted
};

volatile sig_atomic_t gInterrupted = 0;

void onInterrupt(int) { gInterrupted = 1; }

double nowSeconds() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// A blocking pause between two looks at the block; Ctrl-C cuts it short.
void pausePoll() {
  struct timespec pause = {0, kPollMs * 1000000L};
  nanosleep(&pause, nullptr);
}

bool readSeconds(const char* text, double& seconds) {
  if (text == nullptr) return false;
  char* end = nullptr;
  seconds = strtod(text, &end);
  return end != text && *end == '\0' && seconds >= 0.0;
}

// -1 to go on, or the exit status.
int parseOptions(int argc, char** argv, S_Options& options) {
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    if (strcmp(arg, "--help") == 0 || strcmp(arg, "-h") == 0) {
      printf(kHelp, configFileFullName);
      return E_EXIT_ALIVE;
    }
    if (strcmp(arg, "--watch") == 0) {
      options.watch = true;
      continue;
    }
    double* seconds = strcmp(arg, "--alive") == 0 ? &options.aliveSeconds
                      : strcmp(arg, "--for") == 0 ? &options.forSeconds
                                                  : nullptr;
    if (seconds != nullptr && readSeconds(i + 1 < argc ? argv[i + 1] : nullptr, *seconds)) {
      ++i;
      continue;
    }
    fprintf(stderr, "pkstatus: bad argument \"%s\" (see --help)\n", arg);
    return E_EXIT_USAGE;
  }
  return -1;
}

const volatile S_StatusShareMem* attachBlock(int key) {
  int id = shmget(key, sizeof(S_StatusShareMem), 0);
  if (id < 0) return nullptr;
  void* block = shmat(id, nullptr, SHM_RDONLY);
  if (block == reinterpret_cast<void*>(-1)) return nullptr;
  return static_cast<const volatile S_StatusShareMem*>(block);
}

// The service writes the words without a lock: each is read whole, one at a time.
S_StatusShareMem sample(const volatile S_StatusShareMem* block) {
  S_StatusShareMem copy;
  copy.runStep = block->runStep;
  copy.tickCount = block->tickCount;
  copy.rxAlarm = block->rxAlarm;
  copy.txAlarm = block->txAlarm;
  copy.spare = block->spare;
  return copy;
}

const char* stepName(uint32_t step) {
  switch (step) {
    case 1: return "device scan";
    case 2: return "get base info";
    case 3: return "alds poll";
    case 4: return "idle";
    default: return "unknown";
  }
}

bool sameStatus(const S_StatusShareMem& a, const S_StatusShareMem& b) {
  return a.runStep == b.runStep && a.tickCount == b.tickCount && a.rxAlarm == b.rxAlarm &&
         a.txAlarm == b.txAlarm;
}

int exitStatus(bool alive, const S_StatusShareMem& status) {
  if (!alive) return E_EXIT_NOT_ALIVE;
  return status.rxAlarm != 0 || status.txAlarm != 0 ? E_EXIT_ALARM : E_EXIT_ALIVE;
}

void printWatchLine(const S_StatusShareMem& status) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  struct tm local;
  localtime_r(&now.tv_sec, &local);
  printf("%02d:%02d:%02d.%03ld run step %u (%s), life counter %u, rxAlarm %u, txAlarm %u\n",
         local.tm_hour, local.tm_min, local.tm_sec, now.tv_nsec / 1000000, status.runStep,
         stepName(status.runStep), status.tickCount, status.rxAlarm, status.txAlarm);
  fflush(stdout);
}

// Waits up to the alive time for the counter to move; the last sample is left in status.
bool waitAlive(const volatile S_StatusShareMem* block, double seconds, S_StatusShareMem& status) {
  status = sample(block);
  const uint32_t first = status.tickCount;
  const double deadline = nowSeconds() + seconds;
  while (!gInterrupted && nowSeconds() < deadline) {
    pausePoll();
    status = sample(block);
    if (status.tickCount != first) return true;
  }
  return false;
}

int showOnce(const volatile S_StatusShareMem* block, const S_Options& options) {
  S_StatusShareMem status;
  bool alive = waitAlive(block, options.aliveSeconds, status);
  printf("run step     : %u (%s)\n", status.runStep, stepName(status.runStep));
  printf("life counter : %u\n", status.tickCount);
  printf("rxAlarm      : %u\n", status.rxAlarm);
  printf("txAlarm      : %u\n", status.txAlarm);
  printf("alive        : %s\n", alive ? "yes" : "no");
  return exitStatus(alive, status);
}

int watch(const volatile S_StatusShareMem* block, const S_Options& options) {
  const double start = nowSeconds();
  S_StatusShareMem last = sample(block);
  double lastMove = -1.0;  // no move seen yet
  printWatchLine(last);
  while (!gInterrupted && (options.forSeconds < 0 || nowSeconds() - start < options.forSeconds)) {
    pausePoll();
    S_StatusShareMem status = sample(block);
    if (sameStatus(status, last)) continue;
    if (status.tickCount != last.tickCount) lastMove = nowSeconds();
    last = status;
    printWatchLine(status);
  }
  bool alive = lastMove >= 0 && nowSeconds() - lastMove <= options.aliveSeconds;
  return exitStatus(alive, last);
}

}  // namespace

int main(int argc, char** argv) {
  S_Options options;
  int status = parseOptions(argc, argv, options);
  if (status >= 0) return status;

  // The tool prints the status and nothing of the configuration's own traces.
  gLogLevel = 0;
  int key = ConfigFile::getInstance()->_shareMemKey;
  const volatile S_StatusShareMem* block = attachBlock(key);
  if (block == nullptr) {
    fprintf(stderr, "pkstatus: no status block at key 0x%x\n", static_cast<unsigned int>(key));
    return E_EXIT_NO_BLOCK;
  }

  struct sigaction action;
  memset(&action, 0, sizeof(action));
  action.sa_handler = onInterrupt;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);

  return options.watch ? watch(block, options) : showOnce(block, options);
}
