#ifndef PK_TESTS_INTERACTION_TEST_SUPPORT_H
#define PK_TESTS_INTERACTION_TEST_SUPPORT_H

// Records, queues and frames for the interaction layer's tests.
#include <sys/msg.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "InteractionLayer/interactionMsg.h"
#include "e2eHarness.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "testFrames.h"

namespace itest {

using tframes::Bytes;

// The two queues to the M-Plane service, under their default keys.
inline int commandQueue() { return msgget(0x400004, IPC_CREAT | 0666); }
inline int responseQueue() { return msgget(0x400005, IPC_CREAT | 0666); }

// A request with recognisable bytes in every field the services must leave alone.
inline S_InteractionMsg request(int32_t type, uint8_t reserved, const Bytes& data) {
  S_InteractionMsg msg{};
  msg.msgType = type, msg.reserved = reserved;
  memset(msg.errorInfo, 'e', sizeof(msg.errorInfo));
  msg.crcErrorCount = 11, msg.withoutStopFlagCount = 22, msg.receivedOctetsCount = 33;
  msg.dataLength = static_cast<uint32_t>(data.size());
  for (size_t i = 0; i < sizeof(msg.data); ++i) msg.data[i] = static_cast<uint8_t>(0xA0 + i);
  std::copy(data.begin(), data.end(), msg.data);
  return msg;
}

// Waits up to timeoutMs for a record; its text size, or -1.
inline ssize_t receive(int msgId, S_InteractionMsg* out, int timeoutMs) {
  ssize_t n = -1;
  e2e::waitUntil([&] { return (n = recordReceive(msgId, out, 1646, 0, IPC_NOWAIT)) >= 0; }, timeoutMs);
  return n;
}

// The number of messages on a queue, and the bytes of text they hold together.
inline std::pair<int, long> queued(int msgId) {
  struct msqid_ds state;
  if (msgctl(msgId, IPC_STAT, &state) != 0) return {-1, -1};
  return {static_cast<int>(state.msg_qnum), static_cast<long>(state.msg_cbytes)};
}

// Type word, result and error text of a reply, as "1 0 text".
inline std::string summary(const S_InteractionMsg& msg) {
  return std::to_string(msg.msgType) + " " + std::to_string(msg.result) + " " +
         std::string(msg.errorInfo, strnlen(msg.errorInfo, sizeof(msg.errorInfo)));
}

// A structured frame with the poll bit: an I-frame with these layer-7 bytes, as the console sends it.
inline Bytes iFrame(uint8_t address, const Bytes& data, uint8_t control = 0x00) {
  return tframes::frame(tframes::packetTo(address, control, data));
}

}  // namespace itest

#endif
