#ifndef PK_COMMMANAGER_AISG_FRAME_H
#define PK_COMMMANAGER_AISG_FRAME_H

#include <cstdint>

// The words of the AISG link that the service, the bus simulator and the tests
// share: addresses, control values, the XID groups and parameters, the layer-7
// procedure codes and the results of one exchange.
namespace aisg {

constexpr uint8_t kBroadcastAddress = 0xFF;
// An ALD that has been given no address yet answers only to the broadcast.
constexpr uint8_t kNoAddress = 0x00;
// 0 is no station and 255 all stations, so a bus holds at most 254 addressed ALDs.
constexpr uint8_t kLastAddress = 0xFE;

// Control values as the codec takes and gives them in structured mode: U-frames
// without the P/F bit, S-frames reduced to their low four bits, I-frames 0.
constexpr uint8_t kIFrame = 0x00;
constexpr uint8_t kSnrm = 0x83;
constexpr uint8_t kDisc = 0x43;
constexpr uint8_t kXid = 0xAF;
constexpr uint8_t kRr = 0x01;
constexpr uint8_t kUa = 0x63;
// Disconnected mode: an ALD without a link answers polls and I-frames with it.
constexpr uint8_t kDm = 0x0F;

// XID information: format identifier, group identifier, group length, parameters.
constexpr uint8_t kFormatId = 0x81;
constexpr uint8_t kAldGroup = 0xF0;
constexpr uint8_t kHdlcGroup = 0x80;
// Offset of the first parameter in the information field.
constexpr unsigned int kXidParameters = 3;
// Parameters of the ALD group.
constexpr uint8_t kParamUid = 0x01;
constexpr uint8_t kParamAddress = 0x02;
constexpr uint8_t kParamMask = 0x03;
constexpr uint8_t kParamDeviceType = 0x04;
constexpr uint8_t kParamVendorCode = 0x06;
constexpr uint8_t kParamReset = 0x07;
// Parameters of the HDLC group.
constexpr uint8_t kHdlcParamMaxTransmitLength = 0x05;
constexpr uint8_t kHdlcParamMaxReceiveLength = 0x06;
constexpr uint8_t kHdlcParamTransmitWindow = 0x07;
constexpr uint8_t kHdlcParamReceiveWindow = 0x08;

// A layer-7 message in an I-frame: procedure code, parameter count (low byte
// first), parameters.
constexpr unsigned int kMessageHeader = 3;

}  // namespace aisg

// The layer-7 procedure codes of the tilt units (byte 0 of an I-frame's data).
enum E_MretV2Procedure : uint8_t {
  E_MRET_CALIBRATE = 0x80,
  E_MRET_SET_TILT = 0x81,
  E_MRET_GET_TILT = 0x82,
  E_MRET_GET_SUB_NUMS = 0x88,
};

// The result of one exchange in the packet form, from the communication manager
// up through the layer-2 procedures. The raw form knows success and -1 only.
enum E_ExchangeResult : int {
  E_EXCHANGE_SUCCESS = 0,
  // A reply came from another address than the target.
  E_EXCHANGE_OTHER_ADDRESS = -1,
  // A layer-2 procedure got a reply that is not the one it requires.
  E_EXCHANGE_WRONG_REPLY = -1,
  E_EXCHANGE_TIME_OUT = -2,
  // Something came that did not decode as a frame: in a scan, a collision.
  E_EXCHANGE_UNDECODABLE = -3,
  // A poll was answered by DM: the ALD is there, but has lost its link.
  E_EXCHANGE_DISCONNECTED_MODE = -4,
};

#endif
