#ifndef PK_COMMMANAGER_XID_WRITER_H
#define PK_COMMMANAGER_XID_WRITER_H

#include <cstdint>

#include "aisgAppLayer/commManager/hdlcProtocol.h"

// Writes the information field of an XID frame into a record's data: the format
// identifier, the group and its length, then the parameters, each counted in
// the group length.
class XidWriter {
 public:
  XidWriter(S_HdlcPacket& packet, uint8_t group);

  // Appends one parameter. -1, with nothing appended, when it would not fit
  // the record's data or the one-byte group length.
  int add(uint8_t id, const uint8_t* value, uint8_t length);

 private:
  S_HdlcPacket& _packet;
};

#endif
