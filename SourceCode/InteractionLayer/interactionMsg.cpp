#include "InteractionLayer/interactionMsg.h"

#include "systemServerLayer/msgAlloc/queueLoop.h"

namespace interaction {

ssize_t receiveMsg(int msgId, unsigned char* buffer) {
  return receiveOrPause(msgId, buffer, kMaxText, TRACE_SITE);
}

}  // namespace interaction
