// The codec against arbitrary bytes: decode in both modes never reads or writes
// outside the input, the record or the buffer, and whatever decodes well in
// structured mode encodes again to a frame that decodes to the same record,
// unless its content grows past the 268 bytes of a sent frame once stuffed again:
// a received frame is bounded after unstuffing, a sent one after stuffing.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "aisgAppLayer/commManager/hdlcProtocol.h"

namespace {

// Address, control, data and FCS of the record as they would go out stuffed.
unsigned int stuffedSize(const S_HdlcPacket& packet) {
  const unsigned char* area = hdlc::frameArea(packet);
  unsigned int size = 0;
  for (unsigned int i = 0; i < packet.dataLength + 4u; ++i) {
    size += (area[i] == hdlc::kFlag || area[i] == hdlc::kEscape) ? 2 : 1;
  }
  return size;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // An exact-size copy, so that a read past the input is caught.
  std::vector<unsigned char> input(data, data + size);
  for (int mode : {hdlc::kStructured, hdlc::kTransparent}) {
    S_HdlcPacket packet;
    memset(&packet, 0xA5, sizeof(packet));
    int rc = HdlcProtocol::decode(input.data(), static_cast<unsigned int>(input.size()), &packet, mode);
    if (rc != 0) continue;
    if (packet.dataLength > hdlc::kMaxDataLength) abort();

    S_HdlcPacket again = packet;
    unsigned char frame[hdlc::kMaxFrame];
    unsigned int length = 0;
    const int encoded = HdlcProtocol::encode(&again, frame, &length, mode);
    if (encoded == hdlc::HDLC_TOO_LONG && stuffedSize(packet) > hdlc::kMaxContent) continue;
    // ... otherwise a frame that decoded fits the record, so it encodes again (both modes) ...
    if (encoded != 0) abort();
    if (length > hdlc::kMaxFrame) abort();
    // ... to a frame that decodes to the same record, by the silent core as by the facade.
    S_HdlcPacket back;
    memset(&back, 0x5A, sizeof(back));
    if (hdlc::decodeFrame(frame, length, back, mode) != hdlc::HDLC_OK) abort();
    if (back.dataLength != packet.dataLength || back.address != packet.address ||
        back.control != packet.control || back.sendNo != packet.sendNo ||
        back.receiveNo != packet.receiveNo || memcmp(back.data, packet.data, packet.dataLength + 2) != 0) {
      abort();
    }
    if (mode == hdlc::kStructured && back.pollFinal != packet.pollFinal) abort();
  }
  return 0;
}
