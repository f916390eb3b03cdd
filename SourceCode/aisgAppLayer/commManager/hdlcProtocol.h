#ifndef PK_COMMMANAGER_HDLC_PROTOCOL_H
#define PK_COMMMANAGER_HDLC_PROTOCOL_H

#include <cstddef>
#include <cstdint>

// One HDLC frame as a packed record. From `address` to the end of `data` it holds
// the unstuffed frame in wire order (the frame area).
#pragma pack(push, 1)
struct S_HdlcPacket {
  uint8_t pollFinal;
  uint8_t sendNo;
  uint8_t receiveNo;
  uint16_t dataLength;
  int32_t decodeResult;
  uint8_t address;
  uint8_t control;
  uint8_t data[264];
};
#pragma pack(pop)

static_assert(sizeof(S_HdlcPacket) == 275, "S_HdlcPacket is 275 packed bytes");
static_assert(offsetof(S_HdlcPacket, pollFinal) == 0, "layout");
static_assert(offsetof(S_HdlcPacket, sendNo) == 1, "layout");
static_assert(offsetof(S_HdlcPacket, receiveNo) == 2, "layout");
static_assert(offsetof(S_HdlcPacket, dataLength) == 3, "layout");
static_assert(offsetof(S_HdlcPacket, decodeResult) == 5, "layout");
static_assert(offsetof(S_HdlcPacket, address) == 9, "layout");
static_assert(offsetof(S_HdlcPacket, control) == 10, "layout");
static_assert(offsetof(S_HdlcPacket, data) == 11, "layout");

namespace hdlc {
constexpr uint8_t kFlag = 0x7E;
constexpr uint8_t kEscape = 0x7D;
constexpr unsigned int kMaxContent = 268;   // bytes between the flags
constexpr unsigned int kMaxFrame = 270;     // with both flags
constexpr unsigned int kFrameArea = 266;    // address, control and data of the record
constexpr unsigned int kMaxDataLength = 262;
constexpr unsigned int kMinContent = 4;
// N(S) or N(R) of a decoded frame that carries none.
constexpr uint8_t kNoSequenceNo = 0xFF;

enum E_HdlcResult {
  HDLC_OK = 0,
  HDLC_FCS_ERROR = -1,
  HDLC_NO_FLAG = -2,
  HDLC_NO_STOP_FLAG = -3,
  HDLC_BAD_ESCAPE = -4,
  HDLC_TOO_LONG = -5,
  HDLC_TOO_SHORT = -6,
};

constexpr int kStructured = 1;
constexpr int kTransparent = 0;

// The kind of a control byte: an I-frame has bit 0 clear, an S-frame bits 1 and 0 at 01.
// After a structured decode an I-frame's control is 0 and an S-frame's its low four bits.
inline bool isIFrame(uint8_t control) { return (control & 0x01) == 0; }
inline bool isSFrame(uint8_t control) { return (control & 0x03) == 0x01; }

// The two check sequences of a frame that failed its check.
struct S_FcsMismatch {
  uint16_t received;
  uint16_t computed;
};

// The FCS-16 of `length` bytes.
uint16_t fcs(const unsigned char* bytes, unsigned int length);
// The record's address, control and data as one byte area in wire order.
unsigned char* frameArea(S_HdlcPacket& packet);
const unsigned char* frameArea(const S_HdlcPacket& packet);

// The silent core of HdlcProtocol: the same work and results, without the FCS
// line, on const input. encodeFrame builds the control byte in structured mode
// and stores the FCS behind the data, as the record is part of the frame.
E_HdlcResult encodeFrame(S_HdlcPacket& packet, int controlMode, unsigned char* buffer, unsigned int& length);
// On HDLC_FCS_ERROR `mismatch`, if given, receives both sequences.
E_HdlcResult decodeFrame(const unsigned char* buffer, unsigned int length, S_HdlcPacket& packet, int controlMode,
                         S_FcsMismatch* mismatch = nullptr);
// Stuffs `length` bytes into target, which holds kMaxContent bytes.
E_HdlcResult stuff(const unsigned char* source, unsigned int length, unsigned char* target, unsigned int& targetLength);
// Unstuffs `length` bytes into target, storing at most `limit` of them.
E_HdlcResult unstuff(const unsigned char* source, unsigned int length, unsigned char* target, unsigned int limit,
                     unsigned int& targetLength);
}  // namespace hdlc

// Converts between S_HdlcPacket and the bytes of one HDLC frame: FCS-16, stuffing
// of 0x7D and 0x7E, and the control byte in structured (1) or transparent mode.
class HdlcProtocol {
 public:
  HdlcProtocol() = default;

  static int encode(S_HdlcPacket* packet, unsigned char* buffer, unsigned int* length, int controlMode);
  static int decode(unsigned char* buffer, unsigned int length, S_HdlcPacket* packet, int controlMode);
  static int trans(unsigned char* source, unsigned int length, unsigned char* target, unsigned int* targetLength);
  static int transBack(unsigned char* source, unsigned int length, unsigned char* target, unsigned int* targetLength);
  static void doCrc(unsigned char* data, unsigned int length, unsigned short& crc);
  static int encodeForMplane(unsigned char* buffer, unsigned int length, S_HdlcPacket* packet);
  static int decodeForMplane(S_HdlcPacket* packet, unsigned char* buffer, unsigned int* length);
};

#endif
