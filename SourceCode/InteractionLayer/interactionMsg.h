#ifndef PK_INTERACTION_INTERACTION_MSG_H
#define PK_INTERACTION_INTERACTION_MSG_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

// Which endpoint a record belongs to: the key of its service and of its reply.
enum E_InteractionMsgType {
  E_INTERACTION_MSG_MPLANE = 1,
  E_INTERACTION_MSG_COMMAND_LINE = 2,
};

// The record on the interaction, command and response queues. It is the queue
// message itself: the 4-byte type word at offset 0, the queue text from offset
// 4. It crosses to another process, so its layout is fixed byte for byte.
#pragma pack(push, 1)
struct S_InteractionMsg {
  int32_t msgType;
  uint8_t reserved;
  uint8_t result;
  char errorInfo[128];
  uint32_t crcErrorCount;
  uint32_t withoutStopFlagCount;
  uint32_t receivedOctetsCount;
  uint32_t dataLength;
  uint8_t data[1500];
};
#pragma pack(pop)

namespace interaction {
constexpr unsigned int kHeaderSize = 150;
constexpr unsigned int kMsgSize = 1650;
constexpr unsigned int kMaxText = 1646;
constexpr unsigned int kMaxDataLength = 1500;
constexpr unsigned int kErrorInfoSize = 128;

// Receives one record of at most kMaxText bytes of text into buffer (kMsgSize
// bytes). Returns the text size, or -1 after a failure, which it has traced and
// dealt with so that the caller may simply try again: an over-long message is
// removed from the queue, and any other failure costs a pause, so that a queue
// that fails at once never makes its reader spin.
ssize_t receiveMsg(int msgId, unsigned char* buffer);
}  // namespace interaction

static_assert(sizeof(S_InteractionMsg) == 1650, "S_InteractionMsg is 1650 packed bytes");
static_assert(offsetof(S_InteractionMsg, msgType) == 0, "layout");
static_assert(offsetof(S_InteractionMsg, reserved) == 4, "layout");
static_assert(offsetof(S_InteractionMsg, result) == 5, "layout");
static_assert(offsetof(S_InteractionMsg, errorInfo) == 6, "layout");
static_assert(offsetof(S_InteractionMsg, crcErrorCount) == 134, "layout");
static_assert(offsetof(S_InteractionMsg, withoutStopFlagCount) == 138, "layout");
static_assert(offsetof(S_InteractionMsg, receivedOctetsCount) == 142, "layout");
static_assert(offsetof(S_InteractionMsg, dataLength) == 146, "layout");
static_assert(offsetof(S_InteractionMsg, data) == 150, "layout");
static_assert(offsetof(S_InteractionMsg, data) == interaction::kHeaderSize, "header size");

#endif
