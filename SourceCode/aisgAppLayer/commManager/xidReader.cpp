#include "aisgAppLayer/commManager/xidReader.h"

#include <algorithm>

#include "aisgAppLayer/commManager/aisgFrame.h"

XidReader::XidReader(const S_HdlcPacket& packet)
    : _packet(packet),
      _end(std::min<unsigned int>(packet.dataLength, sizeof(packet.data))),
      _offset(aisg::kXidParameters),
      _remaining(_end >= aisg::kXidParameters ? packet.data[2] : 0) {}

bool XidReader::isGroup(uint8_t group) const {
  return _packet.control == aisg::kXid && _end >= aisg::kXidParameters && _packet.data[0] == aisg::kFormatId &&
         _packet.data[1] == group;
}

uint8_t XidReader::groupLength() const { return _end >= aisg::kXidParameters ? _packet.data[2] : 0; }

bool XidReader::next(S_XidParameter& parameter) {
  if (_remaining <= 0 || _malformed) return false;
  if (_offset + 2 > _end || _offset + 2 + _packet.data[_offset + 1] > _end) {
    _malformed = true;
    return false;
  }
  parameter.id = _packet.data[_offset];
  parameter.length = _packet.data[_offset + 1];
  parameter.value = _packet.data + _offset + 2;
  _offset += parameter.length + 2u;
  _remaining -= parameter.length + 2;
  return true;
}
