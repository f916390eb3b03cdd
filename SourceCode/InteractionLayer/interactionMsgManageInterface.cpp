#include "InteractionLayer/interactionMsgManageInterface.h"

#include "InteractionLayer/interactionManager.h"
#include "InteractionLayer/interactionMsg.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"

int InteractionMsgManageInterface::sendMsgCommandManager(unsigned char* msg, int size) {
  // A text beyond the record would be read past its end.
  if (size < 0 || static_cast<unsigned int>(size) > interaction::kMaxText) return -1;
  return msgcheckAndsnd(InteractionManager::getInstance()->getMsgId(), msg, static_cast<std::size_t>(size), 0);
}
