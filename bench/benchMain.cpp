// pkbench: measures the service against its budgets and prints one table.
//
//   pkbench [--long] [--count N] [--only codec,exchange,discovery,scan,poll,idle]
//
// Every measurement that runs the service or the bus runs in a sandbox of its
// own (scripts/sandbox), as `pkbench --part NAME ...`, and reports "@key value"
// lines; this driver gathers them and prints the table in Markdown.
#include <limits.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "benchParts.h"
#include "benchSupport.h"

namespace {

using Figures = std::map<std::string, std::string>;

const int kScanSizes[] = {1, 2, 4, 8, 16, 32};
const int kPollSizes[] = {1, 8, 32};
const char* const kIdleStates[][2] = {{"relay", "without -c, 4 ALDs on the bus"},
                                      {"console4", "with -c, 4 ALDs RUNNING and polled"},
                                      {"noport", "with -c, port missing"}};
constexpr int kPollCycles = 5;
// Seconds between two discoveries in the discovery part: short, so that many exchanges meet one.
constexpr int kDiscoveryPeriod = 2;

struct S_Options {
  int count = 200;
  int idleSeconds = 20;
  std::string only = "codec,exchange,discovery,scan,poll,idle";
};

int runPart(int argc, char** argv) {
  if (getenv("PK_SANDBOX_RUN") == nullptr) {
    fprintf(stderr, "pkbench: --part runs only inside scripts/sandbox\n");
    return 2;
  }
  std::string part = argc > 2 ? argv[2] : "";
  int value = argc > 3 ? atoi(argv[3]) : 0;
  int second = argc > 4 ? atoi(argv[4]) : 0;
  if (part == "mplane") return bench::runMplaneExchanges(value);
  if (part == "console") return bench::runConsoleExchanges(value);
  if (part == "discovery") return bench::runDiscoveryExchanges(value, second);
  if (part == "netconf") return bench::runNetconfExchanges(value);
  if (part == "scan") return bench::runScan(value);
  if (part == "poll") return bench::runPollCycle(value, second);
  if (part == "idle") return bench::runIdle(argc > 3 ? argv[3] : "", second);
  fprintf(stderr, "pkbench: unknown part %s\n", part.c_str());
  return 2;
}

// A part started in its own sandbox, its standard output on a pipe.
struct S_Running {
  pid_t pid;
  int fd;
  std::string what;
};

S_Running startPart(const std::vector<std::string>& words, const std::string& what) {
  fprintf(stderr, "pkbench: %s ...\n", what.c_str());
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
  self[n > 0 ? n : 0] = '\0';
  std::vector<std::string> argv = {PK_SANDBOX, "--base", PK_RUN_BASE, "--", self, "--part"};
  // The NETCONF server listens on a loopback network of the part's own.
  if (words[0] == "netconf") argv.insert(argv.begin() + 1, "--net");
  argv.insert(argv.end(), words.begin(), words.end());
  int out[2];
  if (pipe(out) != 0) return {-1, -1, what};
  pid_t pid = fork();
  if (pid == 0) {
    dup2(out[1], STDOUT_FILENO);
    close(out[0]);
    close(out[1]);
    std::vector<char*> args;
    for (const std::string& word : argv) args.push_back(const_cast<char*>(word.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
  }
  close(out[1]);
  return {pid, out[0], what};
}

Figures finishPart(S_Running& running) {
  std::string text;
  char buffer[4096];
  for (ssize_t n; running.fd >= 0 && (n = read(running.fd, buffer, sizeof(buffer))) > 0;) text.append(buffer, static_cast<size_t>(n));
  if (running.fd >= 0) close(running.fd);
  if (running.pid > 0) waitpid(running.pid, nullptr, 0);
  Figures figures;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] != '@') continue;
    size_t blank = line.find(' ');
    std::string key = line.substr(1, blank - 1);
    std::string value = blank == std::string::npos ? "" : line.substr(blank + 1);
    // A key of a part is e.g. "scan.wall": the table wants the part's own name off it.
    size_t dot = key.find('.');
    figures[dot == std::string::npos ? key : key.substr(dot + 1)] = value;
  }
  if (figures.count("error")) fprintf(stderr, "pkbench: %s: %s\n", running.what.c_str(), figures["error"].c_str());
  return figures;
}

Figures measure(const std::vector<std::string>& words, const std::string& what) {
  S_Running running = startPart(words, what);
  return finishPart(running);
}

double number(Figures& figures, const std::string& key) { return atof(figures[key].c_str()); }

bool wanted(const S_Options& options, const std::string& part) {
  return ("," + options.only + ",").find("," + part + ",") != std::string::npos;
}

const char* verdict(bool met) { return met ? "ok" : "**over**"; }

// The NETCONF road beside the queue road, where pknetconf is built.
void printNetconf(const S_Options& options, Figures& queue) {
  if (access(bench::binPath("pknetconf").c_str(), X_OK) != 0) return;
  Figures f = measure({"netconf", std::to_string(options.count)}, "NETCONF exchanges");
  printf("| NETCONF `ald-communication` from ncclient, through pknetconf and the queues | ");
  if (f.count("error") || !f.count("median")) {
    printf("failed: %s | | | | | | | | |\n", f["error"].c_str());
    return;
  }
  if (!queue.count("rigFloor")) {
    printf("%s | | %s ms | %s ms | | | | | |\n\nThe NETCONF road without the client's own cost (an empty RPC): %s ms at "
           "the median, %s ms at p99; the queue road, its measure, failed.\n",
           f["n"].c_str(), f["median"].c_str(), f["p99"].c_str(), f["serverMedian"].c_str(), f["serverP99"].c_str());
    return;
  }
  // The excess columns are the server's: each call less the client's own cost, over the floor.
  double rigFloor = number(queue, "rigFloor");
  double meanFloor = number(queue, "meanFloor");
  printf("%s | %s / %s bytes | %s ms | %s ms | %s ms | %.2f ms | %.2f ms | %s ms / %.2f ms | %s ms |\n",
         f["n"].c_str(), queue["requestBytes"].c_str(), queue["replyBytes"].c_str(), f["median"].c_str(),
         f["p99"].c_str(), queue["rigFloor"].c_str(), number(f, "serverMedian") - rigFloor,
         number(f, "serverP99") - rigFloor, queue["meanFloor"].c_str(), number(f, "serverMedian") - meanFloor,
         queue["busFloor"].c_str());
  printf("\nThe NETCONF road: each `ald-communication` is followed by an empty RPC of the same client (a `get` whose "
         "filter selects nothing), whose round trip is the client's own cost per call: %s ms at the median, %s ms at "
         "p99. The excess columns take it off each call: without it, a call takes %s ms at the median (%s ms at "
         "p99), %.2f ms more than the queue road's median: what pknetconf's road to the queues adds.\n",
         f["emptyMedian"].c_str(), f["emptyP99"].c_str(), f["serverMedian"].c_str(), f["serverP99"].c_str(),
         number(f, "serverMedian") - number(queue, "median"));
}

void printExchanges(const S_Options& options) {
  Figures roads[2] = {measure({"mplane", std::to_string(options.count)}, "M-Plane exchanges"),
                      measure({"console", std::to_string(options.count)}, "console exchanges")};
  const char* names[2] = {"M-Plane queues (service without -c)", "Console `mret_v2 getTilt 1 1` (with -c)"};
  printf("\n### Exchange latency: one getTilt I-frame and its reply\n\n");
  printf("| Road | Exchanges | Frame out / back | Median | p99 | Floor (this rig) | Excess at median (budget 2 ms) "
         "| Excess at p99 | Floor / excess with a mean 5 ms poll | Floor (real bus) |\n");
  printf("|---|---|---|---|---|---|---|---|---|---|\n");
  for (int i = 0; i < 2; ++i) {
    Figures& f = roads[i];
    if (f.count("error") || !f.count("median")) {
      printf("| %s | failed: %s | | | | | | | | |\n", names[i], f["error"].c_str());
      continue;
    }
    printf("| %s | %s | %s / %s bytes | %s ms | %s ms | %s ms | %s ms %s | %s ms | %s ms / %s ms | %s ms |\n", names[i],
           f["n"].c_str(), f["requestBytes"].c_str(), f["replyBytes"].c_str(), f["median"].c_str(), f["p99"].c_str(),
           f["rigFloor"].c_str(), f["excess"].c_str(), verdict(number(f, "excess") <= 2.0), f["excessP99"].c_str(),
           f["meanFloor"].c_str(), f["meanExcess"].c_str(), f["busFloor"].c_str());
  }
  printNetconf(options, roads[0]);
  Figures& shown = roads[0].count("ready") ? roads[0] : roads[1];
  std::string lastFailure = roads[0].count("failure") ? "; the last M-Plane one: " + roads[0]["failure"] : "";
  printf("\nThe reply is ready for the waiter %s ms after the send: simulator turnaround (%s ms, mean of its log) + "
         "the reply's last byte, (n - 1) byte times of 1.042 ms after its first + 20 ms of silence. The waiter tests "
         "every 10 ms from the send, so the floor is the next multiple of 10 ms; for this frame that phase makes the "
         "poll wait %.1f ms rather than the mean 5 ms, and the column beside uses the 5 ms convention. The pty hands "
         "the request to the simulator at once, so this rig has no outbound wire time; on a real bus the whole "
         "request and one more byte time of the reply come on top, and the phase with them (last column). Console "
         "commands go out only between 50 and 750 ms after a poll of the run machine, so none waits behind a poll "
         "for the command lock (exchanges that met a poll: %s). Exchanges that failed and were made again: "
         "M-Plane %s, console %s%s.\n",
         shown["ready"].c_str(), shown["turnaround"].c_str(), number(shown, "rigFloor") - number(shown, "ready"),
         roads[1]["metPoll"].c_str(), roads[0]["failures"].c_str(), roads[1]["failures"].c_str(),
         lastFailure.c_str());
}

void printDiscovery(const S_Options& options) {
  Figures f = measure({"discovery", std::to_string(options.count), std::to_string(kDiscoveryPeriod)},
                      "console exchanges with discovery");
  printf("\n### What discovery costs a console exchange (with -c, `DiscoveryPeriod %d`)\n\n", kDiscoveryPeriod);
  if (f.count("error") || !f.count("probes")) {
    printf("failed: %s\n", f["error"].c_str());
    return;
  }
  printf("| Console `mret_v2 getTilt 1 1` | Exchanges | Median | p99 |\n|---|---|---|---|\n");
  const char* rows[][2] = {{"probe", "met a discovery probe"},
                           {"poll", "met a poll of the run machine, no probe"},
                           {"clear", "met neither"}};
  for (auto& row : rows) {
    std::string key = row[0];
    printf("| %s | %s | %s ms | %s ms |\n", row[1], f[key + ".n"].c_str(), f[key + ".median"].c_str(),
           f[key + ".p99"].c_str());
  }
  printf("\nOne ALD, addressed and polled; the exchanges typed one after the other with a random pause of 0 to "
         "300 ms between them, %s probes in the run, %s exchanges made again. An exchange met a probe when it was "
         "typed or waited while the probe (`7E FF BF 81 F0 04 01 00 03 00`, which no ALD answers here) held the "
         "bus for its whole 1000 ms wait; it met a poll when an RR poll of the ALD was on the bus in the 50 ms "
         "before or while it waited.\n",
         f["probes"].c_str(), f["failures"].c_str());
}

void printScans() {
  printf("\n### Device scan, %s random 19-byte UIDs per bus\n\n", "aldsim --random N --seed 7:");
  printf("| ALDs | Found | Exchanges | Time-outs | Collisions | Wall time | Algorithm's own time | Excess (budget 5 %%) | "
         "Mean time-out | Mean excess of an answered exchange | Own time on a real bus |\n");
  printf("|---|---|---|---|---|---|---|---|---|---|---|\n");
  for (int alds : kScanSizes) {
    Figures f = measure({"scan", std::to_string(alds)}, "scan of " + std::to_string(alds) + " ALDs");
    if (f.count("error") || !f.count("wall")) {
      printf("| %d | failed: %s | | | | | | | | | |\n", alds, f["error"].c_str());
      continue;
    }
    double excess = 100.0 * (number(f, "wall") - number(f, "own")) / number(f, "own");
    printf("| %d | %s | %s | %s | %s | %s s | %s s | %.1f %% %s | %s ms | %s ms | %s s |\n", alds, f["found"].c_str(),
           f["exchanges"].c_str(), f["timeouts"].c_str(), f["collisions"].c_str(), f["wall"].c_str(),
           f["own"].c_str(), excess, verdict(excess <= 5.0), f["timeoutMean"].c_str(), f["replyExcessMean"].c_str(),
           f["ownOnBus"].c_str());
  }
  printf("\nOwn time = every answered exchange at its floor (the next 10 ms poll after the reply is ready, as above) + every time-out at 1000 ms. The time-outs are "
         "the design's: each probe nobody answers costs the full 1000 ms wait.\n");
}

void printPolls() {
  printf("\n### Poll cycle of the running service (-c): time between two polls of the same ALD\n\n");
  printf("| ALDs | Polled in one cycle | Cycle (mean of %d) | Longest | Polls at their floor | Expected cycle |\n",
         kPollCycles);
  printf("|---|---|---|---|---|---|\n");
  for (int alds : kPollSizes) {
    Figures f = measure({"poll", std::to_string(alds), std::to_string(kPollCycles)},
                        "poll cycle of " + std::to_string(alds) + " ALDs");
    if (f.count("error") || !f.count("cycle")) {
      printf("| %d | failed: %s | | | | |\n", alds, f["error"].c_str());
      continue;
    }
    printf("| %d | %s | %s ms | %s ms | %s ms | %s ms |\n", alds, f["polled"].c_str(), f["cycle"].c_str(),
           f["cycleMax"].c_str(), f["step"].c_str(), f["expected"].c_str());
  }
  printf("\nThe design sets the cycle: a step starts on a tick of the 100 ms timer and re-arms the 1000 ms timer when "
         "it ends, so the next step comes on the 10th tick after that: the poll step rounded up to 100 ms, plus 900 ms. "
         "Each poll is an RR of 6 bytes answered by an RR of 6 bytes, 30 ms at its floor on this rig.\n");
}

void printIdle(const S_Options& options) {
  S_Running running[3];
  for (int i = 0; i < 3; ++i) {
    running[i] = startPart({"idle", kIdleStates[i][0], std::to_string(options.idleSeconds)},
                           std::string("idle ") + kIdleStates[i][0]);
  }
  printf("\n### Idle cost of the service over %d s per state (the three run side by side)\n\n", options.idleSeconds);
  printf("| State | CPU time | Share of one core (budget 0.5 %%) | VmHWM (budget 4 MiB) | VmRSS start / end | "
         "RssAnon / RssFile | Threads |\n");
  printf("|---|---|---|---|---|---|---|\n");
  for (int i = 0; i < 3; ++i) {
    Figures f = finishPart(running[i]);
    if (f.count("error") || !f.count("share")) {
      printf("| %s | failed: %s | | | | | |\n", kIdleStates[i][1], f["error"].c_str());
      continue;
    }
    double hwm = number(f, "hwm") / 1024.0;
    long growth = atol(f["rssEnd"].c_str()) - atol(f["rssStart"].c_str());
    std::string flat = growth <= 0 ? "flat" : "**+" + std::to_string(growth) + " KiB**";
    printf("| %s | %s s | %s %% %s | %.2f MiB %s | %s / %s KiB %s | %s / %s KiB | %s |\n", kIdleStates[i][1],
           f["cpu"].c_str(), f["share"].c_str(), verdict(number(f, "share") < 0.5), hwm, verdict(hwm < 4.0),
           f["rssStart"].c_str(), f["rssEnd"].c_str(), flat.c_str(), f["rssAnon"].c_str(),
           f["rssFile"].c_str(), f["threads"].c_str());
  }
  printf("\nCPU time comes from /proc/PID/stat in clock ticks (10 ms), so the share "
         "resolves to %.3f %%. The service runs at its default trace level (3). These are host figures: an armhf build run "
         "under the emulator would distort the CPU figures, and the board's own libraries set its resident size.\n",
         100.0 * 0.01 / options.idleSeconds);
}

void printCodec() {
  fprintf(stderr, "pkbench: codec ...\n");
  std::map<std::string, double> rates = bench::runCodec();
  const char* rows[][2] = {{"encodeFrame", "`HdlcProtocol::encode`, structured I-frame"},
                           {"decodeFrame", "`HdlcProtocol::decode`, structured I-frame"},
                           {"stuffingCopy", "reference: plain copy with the same stuffing test"},
                           {"fcsLoop", "reference: plain table-driven FCS-16 loop"}};
  printf("\n### Codec throughput (Google Benchmark), MB/s of data bytes\n\n");
  printf("| Loop | 100-byte data | 262-byte data |\n|---|---|---|\n");
  for (auto& row : rows) {
    std::string name = row[0];
    printf("| %s | %.0f | %.0f |\n", row[1], rates[name + "/100"], rates[name + "/262"]);
  }
  // Encode and decode each make one FCS pass and one stuffing pass: the two reference loops in turn.
  auto bothPasses = [&](const std::string& size) {
    return 1.0 / (1.0 / rates["stuffingCopy/" + size] + 1.0 / rates["fcsLoop/" + size]);
  };
  printf("| reference: both loops in turn, as a codec call must | %.0f | %.0f |\n", bothPasses("100"), bothPasses("262"));
  printf("\nThe wire carries 960 bytes per second: the codec is five orders of magnitude faster than the bus.\n\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && strcmp(argv[1], "--part") == 0) return runPart(argc, argv);
  S_Options options;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--long") {
      options.idleSeconds = 60;
    } else if (arg == "--count" && i + 1 < argc) {
      options.count = atoi(argv[++i]);
    } else if (arg == "--only" && i + 1 < argc) {
      options.only = argv[++i];
    } else {
      fprintf(stderr, "usage: pkbench [--long] [--count N] [--only codec,exchange,discovery,scan,poll,idle]\n");
      return 2;
    }
  }
  setvbuf(stdout, nullptr, _IOLBF, 0);
  printf("Host build (%s, Release), %ld cores; the simulator paces its replies at 9600 baud (aldsim --pace).\n",
         PK_HOST_ARCH, sysconf(_SC_NPROCESSORS_ONLN));
  if (wanted(options, "exchange")) printExchanges(options);
  if (wanted(options, "discovery")) printDiscovery(options);
  if (wanted(options, "scan")) printScans();
  if (wanted(options, "poll")) printPolls();
  if (wanted(options, "idle")) printIdle(options);
  if (wanted(options, "codec")) printCodec();
  return 0;
}
