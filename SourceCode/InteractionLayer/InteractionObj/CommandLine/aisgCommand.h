#ifndef PK_INTERACTION_AISG_COMMAND_H
#define PK_INTERACTION_AISG_COMMAND_H

#include "InteractionLayer/InteractionObj/CommandLine/command.h"

// The group `aisg`: looks at the service's own device list, never at the bus.
class AisgCommand : public Command {
 public:
  AisgCommand();
  int responseAnalyse(unsigned char* frame, unsigned int frameLength) override;

  static int __aisg_getDevNums(int argc, char** argv, unsigned char* frame, unsigned int* frameLength);
};

extern const S_CommandInfo _aisgCmds_table[];

#endif
