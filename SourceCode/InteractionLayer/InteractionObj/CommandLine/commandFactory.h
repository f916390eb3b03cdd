#ifndef PK_INTERACTION_COMMAND_FACTORY_H
#define PK_INTERACTION_COMMAND_FACTORY_H

#include "InteractionLayer/InteractionObj/CommandLine/command.h"

class CommandFactory {
 public:
  // The command object of a group word (without regard to case), or null.
  // There is one object per group for the whole process, never released, so a
  // reply still being analysed on the interaction thread never meets a freed
  // object; the caller does not own it.
  static Command* creatCommandObj(const char* group);
};

#endif
