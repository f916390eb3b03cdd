#include "systemServerLayer/msgAlloc/queueLoop.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "utility/threadLoop.h"

ssize_t receiveRecord(int msgId, void* record, std::size_t maxTextSize, S_TraceSite site, int dropLevel) {
  // Room for one byte more than the reader takes, and the rest cut: a message that
  // fills the room is longer than any the reader knows, and the cut tells it apart.
  unsigned char whole[kRecordTypeSize + kMaxQueueText];
  const std::size_t room = std::min(maxTextSize + 1, kMaxQueueText);
  const ssize_t n = cancelPoint([&] { return recordReceive(msgId, whole, room, 0, MSG_NOERROR); });
  if (n < 0) return n;
  if (static_cast<std::size_t>(n) > maxTextSize) {
    DebugTrace(dropLevel, site.file, site.line, "msgId=%d: dropped a message longer than %u bytes\n", msgId,
               static_cast<unsigned int>(maxTextSize));
    errno = E2BIG;
    return -1;
  }
  memcpy(record, whole, kRecordTypeSize + static_cast<std::size_t>(n));
  return n;
}

ssize_t receiveOrPause(int msgId, void* record, std::size_t maxTextSize, S_TraceSite site, int dropLevel) {
  const ssize_t n = receiveRecord(msgId, record, maxTextSize, site, dropLevel);
  if (n >= 0) return n;
  const int error = errno;
  // A dropped message has had its trace, and the next one may wait right behind it.
  if (error != E2BIG) {
    DebugTrace(1, site.file, site.line, "receive empty command -- length=%d , errno=%d!\n", static_cast<int>(n),
               error);
    if (error != EINTR) pauseMs(kFailedReceivePauseMs);
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
