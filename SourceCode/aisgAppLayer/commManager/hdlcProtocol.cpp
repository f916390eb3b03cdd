#include "aisgAppLayer/commManager/hdlcProtocol.h"

#include <cstdio>

namespace {

// FCS-16 lookup table of RFC 1662 (reflected polynomial 0x8408).
const uint16_t fcstab[256] = {
    0x0000, 0x1189, 0x2312, 0x329B, 0x4624, 0x57AD, 0x6536, 0x74BF,
    0x8C48, 0x9DC1, 0xAF5A, 0xBED3, 0xCA6C, 0xDBE5, 0xE97E, 0xF8F7,
    0x1081, 0x0108, 0x3393, 0x221A, 0x56A5, 0x472C, 0x75B7, 0x643E,
    0x9CC9, 0x8D40, 0xBFDB, 0xAE52, 0xDAED, 0xCB64, 0xF9FF, 0xE876,
    0x2102, 0x308B, 0x0210, 0x1399, 0x6726, 0x76AF, 0x4434, 0x55BD,
    0xAD4A, 0xBCC3, 0x8E58, 0x9FD1, 0xEB6E, 0xFAE7, 0xC87C, 0xD9F5,
    0x3183, 0x200A, 0x1291, 0x0318, 0x77A7, 0x662E, 0x54B5, 0x453C,
    0xBDCB, 0xAC42, 0x9ED9, 0x8F50, 0xFBEF, 0xEA66, 0xD8FD, 0xC974,
    0x4204, 0x538D, 0x6116, 0x709F, 0x0420, 0x15A9, 0x2732, 0x36BB,
    0xCE4C, 0xDFC5, 0xED5E, 0xFCD7, 0x8868, 0x99E1, 0xAB7A, 0xBAF3,
    0x5285, 0x430C, 0x7197, 0x601E, 0x14A1, 0x0528, 0x37B3, 0x263A,
    0xDECD, 0xCF44, 0xFDDF, 0xEC56, 0x98E9, 0x8960, 0xBBFB, 0xAA72,
    0x6306, 0x728F, 0x4014, 0x519D, 0x2522, 0x34AB, 0x0630, 0x17B9,
    0xEF4E, 0xFEC7, 0xCC5C, 0xDDD5, 0xA96A, 0xB8E3, 0x8A78, 0x9BF1,
    0x7387, 0x620E, 0x5095, 0x411C, 0x35A3, 0x242A, 0x16B1, 0x0738,
    0xFFCF, 0xEE46, 0xDCDD, 0xCD54, 0xB9EB, 0xA862, 0x9AF9, 0x8B70,
    0x8408, 0x9581, 0xA71A, 0xB693, 0xC22C, 0xD3A5, 0xE13E, 0xF0B7,
    0x0840, 0x19C9, 0x2B52, 0x3ADB, 0x4E64, 0x5FED, 0x6D76, 0x7CFF,
    0x9489, 0x8500, 0xB79B, 0xA612, 0xD2AD, 0xC324, 0xF1BF, 0xE036,
    0x18C1, 0x0948, 0x3BD3, 0x2A5A, 0x5EE5, 0x4F6C, 0x7DF7, 0x6C7E,
    0xA50A, 0xB483, 0x8618, 0x9791, 0xE32E, 0xF2A7, 0xC03C, 0xD1B5,
    0x2942, 0x38CB, 0x0A50, 0x1BD9, 0x6F66, 0x7EEF, 0x4C74, 0x5DFD,
    0xB58B, 0xA402, 0x9699, 0x8710, 0xF3AF, 0xE226, 0xD0BD, 0xC134,
    0x39C3, 0x284A, 0x1AD1, 0x0B58, 0x7FE7, 0x6E6E, 0x5CF5, 0x4D7C,
    0xC60C, 0xD785, 0xE51E, 0xF497, 0x8028, 0x91A1, 0xA33A, 0xB2B3,
    0x4A44, 0x5BCD, 0x6956, 0x78DF, 0x0C60, 0x1DE9, 0x2F72, 0x3EFB,
    0xD68D, 0xC704, 0xF59F, 0xE416, 0x90A9, 0x8120, 0xB3BB, 0xA232,
    0x5AC5, 0x4B4C, 0x79D7, 0x685E, 0x1CE1, 0x0D68, 0x3FF3, 0x2E7A,
    0xE70E, 0xF687, 0xC41C, 0xD595, 0xA12A, 0xB0A3, 0x8238, 0x93B1,
    0x6B46, 0x7ACF, 0x4854, 0x59DD, 0x2D62, 0x3CEB, 0x0E70, 0x1FF9,
    0xF78F, 0xE606, 0xD49D, 0xC514, 0xB1AB, 0xA022, 0x92B9, 0x8330,
    0x7BC7, 0x6A4E, 0x58D5, 0x495C, 0x3DE3, 0x2C6A, 0x1EF1, 0x0F78,
};

constexpr uint8_t kEscapeXor = 0x20;

uint8_t buildControl(S_HdlcPacket& packet) {
  packet.receiveNo &= 0x07;
  uint8_t control;
  if (hdlc::isIFrame(packet.control)) {
    packet.sendNo &= 0x07;
    control = static_cast<uint8_t>((packet.receiveNo << 5) | (packet.sendNo << 1));
  } else if (hdlc::isSFrame(packet.control)) {
    control = static_cast<uint8_t>((packet.control & 0x0F) | (packet.receiveNo << 5));
  } else {
    control = static_cast<uint8_t>(packet.control & 0xEF);
  }
  return static_cast<uint8_t>(control | ((packet.pollFinal & 0x01) << 4));
}

void splitControl(S_HdlcPacket& packet) {
  const uint8_t c = packet.control;
  packet.pollFinal = (c >> 4) & 0x01;
  if (hdlc::isIFrame(c)) {
    packet.sendNo = (c >> 1) & 0x07;
    packet.receiveNo = (c >> 5) & 0x07;
    packet.control = 0;
  } else if (hdlc::isSFrame(c)) {
    packet.receiveNo = (c >> 5) & 0x07;
    packet.control = c & 0x0F;
  } else {
    packet.control = c & 0xEF;
  }
}

}  // namespace

namespace hdlc {

uint16_t fcs(const unsigned char* bytes, unsigned int length) {
  uint16_t value = 0xFFFF;
  for (unsigned int i = 0; i < length; ++i) {
    value = static_cast<uint16_t>(fcstab[(value ^ bytes[i]) & 0xFF] ^ (value >> 8));
  }
  return static_cast<uint16_t>(~value);
}

// The packed layout makes these 266 bytes contiguous.
unsigned char* frameArea(S_HdlcPacket& packet) {
  return reinterpret_cast<unsigned char*>(&packet) + offsetof(S_HdlcPacket, address);
}

const unsigned char* frameArea(const S_HdlcPacket& packet) {
  return reinterpret_cast<const unsigned char*>(&packet) + offsetof(S_HdlcPacket, address);
}

// Stores at most kMaxContent bytes, so that an oversized input never writes past
// a 268-byte target; the full count still decides the result.
E_HdlcResult stuff(const unsigned char* source, unsigned int length, unsigned char* target,
                   unsigned int& targetLength) {
  unsigned int count = 0;
  auto put = [&](unsigned char byte) {
    if (count < kMaxContent) {
      target[count] = byte;
    }
    ++count;
  };
  for (unsigned int i = 0; i < length; ++i) {
    if (source[i] == kFlag || source[i] == kEscape) {
      put(kEscape);
      put(static_cast<unsigned char>(source[i] ^ kEscapeXor));
    } else {
      put(source[i]);
    }
  }
  if (count > kMaxContent) {
    return HDLC_TOO_LONG;
  }
  targetLength = count;
  return HDLC_OK;
}

// A bad escape anywhere is reported before the length, as the receive counters expect.
E_HdlcResult unstuff(const unsigned char* source, unsigned int length, unsigned char* target, unsigned int limit,
                     unsigned int& targetLength) {
  if (length > 0 && source[length - 1] == kEscape) {
    return HDLC_BAD_ESCAPE;
  }
  unsigned int count = 0;
  for (unsigned int i = 0; i < length; ++i) {
    unsigned char byte = source[i];
    if (byte == kEscape) {
      byte = source[++i];
      if (byte != (kEscape ^ kEscapeXor) && byte != (kFlag ^ kEscapeXor)) {
        return HDLC_BAD_ESCAPE;
      }
      byte = static_cast<unsigned char>(byte ^ kEscapeXor);
    }
    if (count < limit) {
      target[count] = byte;
    }
    ++count;
  }
  if (count > limit) {
    return HDLC_TOO_LONG;
  }
  targetLength = count;
  return HDLC_OK;
}

E_HdlcResult encodeFrame(S_HdlcPacket& packet, int controlMode, unsigned char* buffer, unsigned int& length) {
  if (controlMode == kStructured) {
    packet.control = buildControl(packet);
  }
  // The FCS has to fit behind the data inside the record.
  if (packet.dataLength > kMaxDataLength) {
    return HDLC_TOO_LONG;
  }
  unsigned char* area = frameArea(packet);
  const unsigned int fcsOffset = packet.dataLength + 2u;
  const uint16_t sequence = fcs(area, fcsOffset);
  area[fcsOffset] = static_cast<unsigned char>(sequence & 0xFF);
  area[fcsOffset + 1] = static_cast<unsigned char>(sequence >> 8);

  buffer[0] = kFlag;
  unsigned int stuffed = 0;
  const E_HdlcResult result = stuff(area, fcsOffset + 2, buffer + 1, stuffed);
  if (result != HDLC_OK) {
    return result;
  }
  buffer[stuffed + 1] = kFlag;
  length = stuffed + 2;
  return HDLC_OK;
}

E_HdlcResult decodeFrame(const unsigned char* buffer, unsigned int length, S_HdlcPacket& packet, int controlMode,
                         S_FcsMismatch* mismatch) {
  packet.sendNo = kNoSequenceNo;
  packet.receiveNo = kNoSequenceNo;

  unsigned int open = 0;
  while (open < length && buffer[open] != kFlag) {
    ++open;
  }
  if (open == length) {
    return HDLC_NO_FLAG;
  }
  unsigned int close = open + 1;
  while (close < length && buffer[close] != kFlag) {
    ++close;
  }
  if (close == length) {
    return HDLC_NO_STOP_FLAG;
  }

  // The record's frame area holds 266 bytes; a frame of 267 or 268 unstuffed
  // bytes would pass the 268-byte wire limit yet not fit, so it counts as too long.
  unsigned int count = 0;
  const E_HdlcResult result = unstuff(buffer + open + 1, close - open - 1, frameArea(packet), kFrameArea, count);
  if (result != HDLC_OK) {
    return result;
  }
  if (count < kMinContent) {
    return HDLC_TOO_SHORT;
  }

  const unsigned char* area = frameArea(packet);
  const uint16_t received = static_cast<uint16_t>(area[count - 2] | (area[count - 1] << 8));
  const uint16_t computed = fcs(area, count - 2);
  if (received != computed) {
    if (mismatch != nullptr) *mismatch = {received, computed};
    return HDLC_FCS_ERROR;
  }
  packet.dataLength = static_cast<uint16_t>(count - 4);
  if (controlMode == kStructured) {
    splitControl(packet);
  }
  return HDLC_OK;
}

}  // namespace hdlc

int HdlcProtocol::encode(S_HdlcPacket* packet, unsigned char* buffer, unsigned int* length, int controlMode) {
  return hdlc::encodeFrame(*packet, controlMode, buffer, *length);
}

int HdlcProtocol::decode(unsigned char* buffer, unsigned int length, S_HdlcPacket* packet, int controlMode) {
  hdlc::S_FcsMismatch mismatch{};
  const hdlc::E_HdlcResult result = hdlc::decodeFrame(buffer, length, *packet, controlMode, &mismatch);
  if (result == hdlc::HDLC_FCS_ERROR) {
    printf("Aisg Error: crc16=0x%04x, calCrc16=0x%04x\n", mismatch.received, mismatch.computed);
  }
  return result;
}

int HdlcProtocol::trans(unsigned char* source, unsigned int length, unsigned char* target, unsigned int* targetLength) {
  return hdlc::stuff(source, length, target, *targetLength);
}

int HdlcProtocol::transBack(unsigned char* source, unsigned int length, unsigned char* target,
                            unsigned int* targetLength) {
  return hdlc::unstuff(source, length, target, hdlc::kMaxContent, *targetLength);
}

void HdlcProtocol::doCrc(unsigned char* data, unsigned int length, unsigned short& crc) {
  crc = hdlc::fcs(data, length);
}

int HdlcProtocol::encodeForMplane(unsigned char*, unsigned int, S_HdlcPacket*) {
  return 0;
}

int HdlcProtocol::decodeForMplane(S_HdlcPacket*, unsigned char*, unsigned int*) {
  return 0;
}
