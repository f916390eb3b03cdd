#include "aisgAppLayer/commManager/xidWriter.h"

#include <cstring>

#include "aisgAppLayer/commManager/aisgFrame.h"

XidWriter::XidWriter(S_HdlcPacket& packet, uint8_t group) : _packet(packet) {
  _packet.data[0] = aisg::kFormatId;
  _packet.data[1] = group;
  _packet.data[2] = 0;
  _packet.dataLength = aisg::kXidParameters;
}

int XidWriter::add(uint8_t id, const uint8_t* value, uint8_t length) {
  const unsigned int size = length + 2u;
  if (_packet.dataLength + size > hdlc::kMaxDataLength || _packet.data[2] + size > 0xFF) return -1;
  uint8_t* at = _packet.data + _packet.dataLength;
  at[0] = id;
  at[1] = length;
  if (length > 0) memcpy(at + 2, value, length);
  _packet.dataLength = static_cast<uint16_t>(_packet.dataLength + size);
  _packet.data[2] = static_cast<uint8_t>(_packet.data[2] + size);
  return 0;
}
