#ifndef PK_MSGALLOC_QUEUE_LOOP_H
#define PK_MSGALLOC_QUEUE_LOOP_H

#include <sys/types.h>

#include <cstddef>

#include "utility/debugTrace.h"

// What a receive does with a message longer than its reader takes.
enum E_OverlongMsg {
  // Leaves it at the head of the queue (the failure pauses as any other).
  E_OVERLONG_KEEP,
  // Takes it off, cut, and traces that at level 1: it would block all behind it.
  E_OVERLONG_DROP,
};

// Receives one record (type word at offset 0, at most maxTextSize bytes of text
// behind it), of any type, waiting for it in a cancel point of the thread. After
// a failure it traces "receive empty command -- length=%d , errno=%d!\n" at
// level 1 for the caller's site, deals with an over-long message as asked, and
// pauses kFailedReceivePauseMs unless a signal or a drop ended the receive, so a
// queue that fails at once never makes its reader spin. The text size, or -1
// with errno of the failure.
ssize_t receiveOrPause(int msgId, void* record, std::size_t maxTextSize, S_TraceSite site,
                       E_OverlongMsg overlong = E_OVERLONG_KEEP);

// How far a drain empties a queue, without waiting.
enum E_DrainMsg {
  // Up to and with the first message without text (the drains that the
  // allocator and the tick queue are specified with).
  E_DRAIN_TEXT_MSGS,
  // Every message, an over-long one cut.
  E_DRAIN_ALL_MSGS,
};
void drainQueue(int msgId, E_DrainMsg how);

#endif
