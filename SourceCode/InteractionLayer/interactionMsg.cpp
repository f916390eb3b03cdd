#include "InteractionLayer/interactionMsg.h"

#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <cerrno>

#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "utility/debugTrace.h"

namespace interaction {

namespace {
constexpr unsigned int kFailurePauseUs = 100000;
}

ssize_t receiveMsg(int msgId, unsigned char* buffer) {
  ssize_t n = recordReceive(msgId, buffer, kMaxText, 0, 0);
  if (n >= 0) return n;
  int error = errno;
  TRACE(1, "receive empty command -- length=%d , errno=%d!\n", static_cast<int>(n), error);
  if (error == E2BIG) {
    // The message would stay at the head of the queue and block everything
    // behind it: take it off, cut, and throw it away.
    recordReceive(msgId, buffer, kMaxText, 0, IPC_NOWAIT | MSG_NOERROR);
    TRACE(1, "msgId=%d: dropped a message longer than %u bytes\n", msgId, kMaxText);
  } else if (error != EINTR) {
    usleep(kFailurePauseUs);
  }
  return -1;
}

}  // namespace interaction
