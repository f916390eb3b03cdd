#ifndef PK_MSGALLOC_MSG_QUEUE_H
#define PK_MSGALLOC_MSG_QUEUE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

// The one adapter between the system's packed records and the platform's
// System V message {long mtype; char mtext[];}.
//
// Every record of the system keeps a 4-byte type word at offset 0 and its text
// from offset 4 on, on every platform. The platform's type word is a long: 4
// bytes on the 32-bit target, 8 on 64-bit hosts. These two calls move the type
// and the text across, so that the text sizes and bytes on a queue are the same
// everywhere and a 64-bit peer and a 32-bit service understand each other.

constexpr std::size_t kRecordTypeSize = 4;
// The largest text any queue of the system carries (the drains of the allocator).
constexpr std::size_t kMaxQueueText = 2048;

// Sends textSize bytes of text that follow the type word of record. The result
// is that of msgsnd. A text beyond kMaxQueueText fails with EINVAL.
int recordSend(int msqid, const void* record, std::size_t textSize, int msgflg);

// Receives into record: the type word at offset 0, at most maxTextSize bytes of
// text from offset 4. The result is that of msgrcv: the text size, or -1.
ssize_t recordReceive(int msqid, void* record, std::size_t maxTextSize, long msgtyp, int msgflg);

// Reads and writes the 4-byte type word of a record (which may be unaligned).
int32_t recordType(const void* record);
void setRecordType(void* record, int32_t type);

#endif
