#ifndef PK_ALDSIM_SIM_RUNNER_H
#define PK_ALDSIM_SIM_RUNNER_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "aldBus.h"
#include "frameSplitter.h"
#include "simPort.h"
#include "simSchedule.h"

// The simulator's loop: waits in poll on the port and the operator's input,
// answers frames through the bus, runs the schedule's commands and sends
// replies when they are due.
class SimRunner {
 public:
  SimRunner(SimPort& port, AldBus& bus, bool paced, const std::vector<S_SimEvent>& events);
  // Runs for ever; the process ends by a signal.
  void run();

 private:
  struct S_PendingWrite {
    std::vector<uint8_t> bytes;
    const char* logAs;  // nullptr: the second half of a frame already logged
    unsigned int splitMs;
  };

  static long long nowMs();
  double secondsSinceStart() const;
  int pollTimeout() const;
  void readPort();
  void readInput();
  void runCommand(const std::string& line);
  // Sends the replies of the bus, each when its delay is over.
  void send(const std::vector<S_SimReply>& replies);
  void runDueEvents();
  void writeDue();
  void schedule(long long due, const S_PendingWrite& write);

  SimPort& _port;
  AldBus& _bus;
  bool _paced;
  bool _inputOpen = true;
  long long _startMs;
  FrameSplitter _splitter;
  std::string _inputLine;
  std::multimap<long long, S_PendingWrite> _pending;  // by due time, in ms
  std::multimap<long long, std::string> _events;      // commands by due time, in ms
};

#endif
