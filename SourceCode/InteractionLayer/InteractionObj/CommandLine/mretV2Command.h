#ifndef PK_INTERACTION_MRET_V2_COMMAND_H
#define PK_INTERACTION_MRET_V2_COMMAND_H

#include "InteractionLayer/InteractionObj/CommandLine/command.h"

// The group `mret_v2`: layer-7 tilt procedures of multi-antenna tilt units.
class MretV2Command : public Command {
 public:
  MretV2Command();
  int responseAnalyse(unsigned char* frame, unsigned int frameLength) override;

  static int __mret_v2_calibrate(int argc, char** argv, unsigned char* frame, unsigned int* frameLength);
  static int __mret_v2_getTilt(int argc, char** argv, unsigned char* frame, unsigned int* frameLength);
  static int __mret_v2_setTilt(int argc, char** argv, unsigned char* frame, unsigned int* frameLength);
  static int __mret_v2_getNumberOfAntenna(int argc, char** argv, unsigned char* frame, unsigned int* frameLength);
};

extern const S_CommandInfo _mretV2Cmds_table[];

#endif
