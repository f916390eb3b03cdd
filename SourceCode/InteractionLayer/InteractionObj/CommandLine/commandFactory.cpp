#include "InteractionLayer/InteractionObj/CommandLine/commandFactory.h"

#include <strings.h>

#include "InteractionLayer/InteractionObj/CommandLine/aisgCommand.h"
#include "InteractionLayer/InteractionObj/CommandLine/mretV2Command.h"

Command* CommandFactory::creatCommandObj(const char* group) {
  if (group == nullptr) return nullptr;
  // Made on first use and never destroyed, not even at exit, when the
  // interaction thread may still be printing a reply with it.
  if (strcasecmp(group, "aisg") == 0) {
    static Command* aisg = new AisgCommand();
    return aisg;
  }
  if (strcasecmp(group, "mret_v2") == 0) {
    static Command* mretV2 = new MretV2Command();
    return mretV2;
  }
  return nullptr;
}
