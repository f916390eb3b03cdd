#include "InteractionLayer/InteractionObj/CommandLine/command.h"

#include <strings.h>

#include <cstdio>

int Command::execut(int argc, char** argv, unsigned char* frame, unsigned int* frameLength) {
  // The group word alone asks for help, like "help" itself.
  if (argc < 1 || strcasecmp(argv[0], "help") == 0) {
    showHelp();
    return -1;
  }
  for (const S_CommandInfo* row = _pCmdTable; row->cmdName != nullptr; ++row) {
    if (strcasecmp(row->cmdName, argv[0]) == 0) return row->cmdHandler(argc - 1, &argv[1], frame, frameLength);
  }
  printf("not find cmd[%s]\n", argv[0]);
  return -1;
}

int Command::showHelp() {
  for (const S_CommandInfo* row = _pCmdTable; row->cmdName != nullptr; ++row) {
    printf("%s -- %s\n", row->cmdUsage, row->cmdDescription);
  }
  return 0;
}
