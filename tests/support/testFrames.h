#ifndef PK_TESTS_SUPPORT_TEST_FRAMES_H
#define PK_TESTS_SUPPORT_TEST_FRAMES_H

// Packets and their frames for the tests, made by the codec itself.

#include <algorithm>
#include <cstdint>
#include <vector>

#include "aisgAppLayer/commManager/hdlcProtocol.h"

namespace tframes {

using Bytes = std::vector<uint8_t>;

// A packet with the poll/final bit, as the primary sends it.
inline S_HdlcPacket packetTo(uint8_t address, uint8_t control, const Bytes& data = {}, uint8_t sendNo = 0,
                             uint8_t receiveNo = 0) {
  S_HdlcPacket packet{1, sendNo, receiveNo, uint16_t(data.size()), 0, address, control, {}};
  std::copy(data.begin(), data.end(), packet.data);
  return packet;
}

// The bytes of a packet, empty when it does not encode; the packet keeps what encode left in it.
inline Bytes encoded(S_HdlcPacket& packet, int mode = hdlc::kStructured) {
  unsigned char buffer[hdlc::kMaxFrame];
  unsigned int length = 0;
  return HdlcProtocol::encode(&packet, buffer, &length, mode) == 0 ? Bytes(buffer, buffer + length) : Bytes();
}
inline Bytes frame(S_HdlcPacket packet) { return encoded(packet); }

}  // namespace tframes

#endif
