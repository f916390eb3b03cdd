#ifndef PK_ALDSIM_SIM_SCHEDULE_H
#define PK_ALDSIM_SIM_SCHEDULE_H

#include <string>
#include <vector>

#include "aldBus.h"

// One command of the schedule and when it runs.
struct S_SimEvent {
  double seconds;  // after start
  std::string command;
};

// The schedule of the command line (--at SECONDS:COMMAND).
class SimSchedule {
 public:
  // Reads one "SECONDS:COMMAND". 0, or -1 with the reason in `error`.
  static int parse(const std::string& text, S_SimEvent& event, std::string& error);
  // Puts the events in time order and runs them on `bus`, a copy of the bus to
  // run, so that a command it would refuse is refused before the run starts.
  // 0, or -1 with the reason in `error`.
  static int check(std::vector<S_SimEvent>& events, AldBus bus, std::string& error);
};

#endif
