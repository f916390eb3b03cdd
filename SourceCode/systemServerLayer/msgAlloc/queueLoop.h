#ifndef PK_MSGALLOC_QUEUE_LOOP_H
#define PK_MSGALLOC_QUEUE_LOOP_H

#include <sys/types.h>

#include <cstddef>

#include "utility/debugTrace.h"

// The trace level of a dropped message: 2 for a foreign message on an internal
// queue, 1 where the reader is the peer's own (a request no record holds).
constexpr int kForeignMsgTraceLevel = 2;

// Receives one record (type word at offset 0, at most maxTextSize bytes of text
// behind it), of any type, waiting for it in a cancel point of the thread. The
// text size, or -1 with errno of the failure. A message whose text is longer
// than maxTextSize is taken off and dropped with a trace at dropLevel for the
// caller's site, and gives -1 with errno E2BIG: the queues are open to every
// local process, and such a message left at the head of one would block every
// message behind it for good. maxTextSize is below kMaxQueueText.
ssize_t receiveRecord(int msgId, void* record, std::size_t maxTextSize, S_TraceSite site, int dropLevel);

// receiveRecord for the loops of the managers and endpoints. After any other
// failure it traces "receive empty command -- length=%d , errno=%d!\n" at level
// 1 for the caller's site and pauses kFailedReceivePauseMs unless a signal ended
// the receive, so a queue that fails at once never makes its reader spin.
ssize_t receiveOrPause(int msgId, void* record, std::size_t maxTextSize, S_TraceSite site, int dropLevel);

// How far a drain empties a queue, without waiting.
enum E_DrainMsg {
  // Up to and with the first message without text (the drains of the
  // allocator and of the tick queue).
  E_DRAIN_TEXT_MSGS,
  // Every message, an over-long one cut.
  E_DRAIN_ALL_MSGS,
};
void drainQueue(int msgId, E_DrainMsg how);

#endif
