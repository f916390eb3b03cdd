#ifndef PK_ALDSIM_SIM_OPTIONS_H
#define PK_ALDSIM_SIM_OPTIONS_H

#include <cstdio>
#include <string>
#include <vector>

#include "aldDescription.h"
#include "simSchedule.h"

// What the command line asks for.
struct S_SimOptions {
  std::string link;
  std::string port;
  bool pace = false;
  bool help = false;
  bool alwaysLinked = false;
  unsigned int seed = 1;
  unsigned int randomCount = 0;
  std::vector<S_AldConfig> alds;  // in order of definition; random ones last
  std::vector<S_SimEvent> events;  // in time order
};

class SimOptions {
 public:
  // 0, or -1 with the reason in `error`.
  static int parse(int argc, char** argv, S_SimOptions& options, std::string& error);
  static void printHelp(FILE* out);

 private:
  static int readFile(const std::string& path, S_SimOptions& options, std::string& error);
  static void addRandom(S_SimOptions& options);
};

#endif
