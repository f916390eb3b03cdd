#include "InteractionLayer/interactionMsgManageInterface.h"

#include "InteractionLayer/interactionMsg.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"

int InteractionMsgManageInterface::sendMsgCommandManager(unsigned char* msg, int size) {
  // A text beyond the record would be read past its end.
  if (size < 0 || static_cast<unsigned int>(size) > interaction::kMaxText) return -1;
  return msgcheckAndsnd(_msgId, msg, static_cast<std::size_t>(size), 0);
}
