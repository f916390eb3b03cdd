#include "InteractionLayer/InteractionObj/CommandLine/aisgCommand.h"

#include <cstdio>
#include <cstring>

#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"

const S_CommandInfo _aisgCmds_table[] = {
    {"getDevNums", AisgCommand::__aisg_getDevNums, "get number of ALD", "usage: aisg getDevNums"},
    {nullptr, nullptr, nullptr, nullptr},
};

AisgCommand::AisgCommand() : Command(_aisgCmds_table) {}

int AisgCommand::responseAnalyse(unsigned char* frame, unsigned int frameLength) {
  (void)frame;
  (void)frameLength;
  puts("Aisg Command response analyse:");
  return 0;
}

int AisgCommand::__aisg_getDevNums(int argc, char** argv, unsigned char* frame, unsigned int* frameLength) {
  (void)argc;
  (void)argv;
  (void)frame;
  (void)frameLength;
  AldDeviceContainer* container = AldDeviceContainer::getInstance();
  printf("ALD nums = %d \n", static_cast<int>(container->getAldDeviceNums()));
  for (AldDevice* ald = container->getBeginAldDeviceObj(); ald != nullptr && !container->isEnd();
       ald = container->getNextAldDeviceObj()) {
    unsigned char uid[21];
    memset(uid, 0, sizeof(uid));
    ald->getUid(uid);
    printf("addr:%d , type=0x%02x, AISGv%d , uid:%s\n", ald->address, ald->deviceType, ald->aisgVersion,
           reinterpret_cast<char*>(uid));
  }
  // The listing is the whole work: nothing goes to the bus.
  return -1;
}
