#include "InteractionLayer/interactionMsg.h"

#include "systemServerLayer/msgAlloc/queueLoop.h"

namespace interaction {

ssize_t receiveMsg(int msgId, unsigned char* buffer) {
  // The interaction queue and the peer's command queue: an over-long record is a peer's error.
  return receiveOrPause(msgId, buffer, kMaxText, TRACE_SITE, 1);
}

}  // namespace interaction
