#include "systemServerLayer/msgAlloc/msgQueue.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <cerrno>
#include <cstring>

namespace {

struct PlatformMessage {
  long mtype;
  unsigned char mtext[kMaxQueueText];
};

}  // namespace

int32_t recordType(const void* record) {
  int32_t type;
  memcpy(&type, record, sizeof(type));
  return type;
}

void setRecordType(void* record, int32_t type) { memcpy(record, &type, sizeof(type)); }

int recordSend(int msqid, const void* record, std::size_t textSize, int msgflg) {
  if (textSize > kMaxQueueText) {
    errno = EINVAL;
    return -1;
  }
  PlatformMessage message;
  message.mtype = recordType(record);
  memcpy(message.mtext, static_cast<const unsigned char*>(record) + kRecordTypeSize, textSize);
  return msgsnd(msqid, &message, textSize, msgflg);
}

ssize_t recordReceive(int msqid, void* record, std::size_t maxTextSize, long msgtyp, int msgflg) {
  if (maxTextSize > kMaxQueueText) maxTextSize = kMaxQueueText;
  PlatformMessage message;
  ssize_t n = msgrcv(msqid, &message, maxTextSize, msgtyp, msgflg);
  if (n < 0) return n;
  setRecordType(record, static_cast<int32_t>(message.mtype));
  memcpy(static_cast<unsigned char*>(record) + kRecordTypeSize, message.mtext,
         static_cast<std::size_t>(n));
  return n;
}
