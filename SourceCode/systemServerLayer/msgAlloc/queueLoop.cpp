#include "systemServerLayer/msgAlloc/queueLoop.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <cerrno>

#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "utility/threadLoop.h"

ssize_t receiveOrPause(int msgId, void* record, std::size_t maxTextSize, S_TraceSite site,
                       E_OverlongMsg overlong) {
  const ssize_t n = cancelPoint([&] { return recordReceive(msgId, record, maxTextSize, 0, 0); });
  if (n >= 0) return n;
  const int error = errno;
  DebugTrace(1, site.file, site.line, "receive empty command -- length=%d , errno=%d!\n", static_cast<int>(n),
             error);
  if (error == E2BIG && overlong == E_OVERLONG_DROP) {
    recordReceive(msgId, record, maxTextSize, 0, IPC_NOWAIT | MSG_NOERROR);
    DebugTrace(1, site.file, site.line, "msgId=%d: dropped a message longer than %u bytes\n", msgId,
               static_cast<unsigned int>(maxTextSize));
  } else if (error != EINTR) {
    pauseMs(kFailedReceivePauseMs);
  }
  errno = error;
  return -1;
}

void drainQueue(int msgId, E_DrainMsg how) {
  unsigned char record[kRecordTypeSize + kMaxQueueText];
  const int flags = how == E_DRAIN_ALL_MSGS ? IPC_NOWAIT | MSG_NOERROR : IPC_NOWAIT;
  for (;;) {
    const ssize_t n = recordReceive(msgId, record, kMaxQueueText, 0, flags);
    if (n < 0 || (n == 0 && how == E_DRAIN_TEXT_MSGS)) return;
  }
}
