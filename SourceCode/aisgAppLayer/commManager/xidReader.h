#ifndef PK_COMMMANAGER_XID_READER_H
#define PK_COMMMANAGER_XID_READER_H

#include <cstdint>

#include "aisgAppLayer/commManager/hdlcProtocol.h"

// One parameter of an XID group: identifier, length and where its value lies.
struct S_XidParameter {
  uint8_t id;
  uint8_t length;
  const uint8_t* value;
};

// Walks the parameters of the XID group in a decoded frame. The group length
// counts down by each parameter's length plus 2 and the walk ends at 0 or below,
// so it may end inside the last parameter; a parameter that runs past the
// frame's data ends the walk as malformed.
class XidReader {
 public:
  explicit XidReader(const S_HdlcPacket& packet);

  // An XID frame with the format identifier, this group and a group length.
  bool isGroup(uint8_t group) const;
  uint8_t groupLength() const;
  // The next parameter; false at the end of the group or at a malformed one.
  bool next(S_XidParameter& parameter);
  bool malformed() const { return _malformed; }

 private:
  const S_HdlcPacket& _packet;
  unsigned int _end;
  unsigned int _offset;
  int _remaining;
  bool _malformed = false;
};

#endif
