#ifndef PK_LAYER2DEVICE_AISG_FRAME_H
#define PK_LAYER2DEVICE_AISG_FRAME_H

#include <cstdint>

// The values of AISG layer-2 frames, shared by the service and the bus simulator.
namespace aisg {

constexpr uint8_t kBroadcastAddress = 0xFF;

// Control values as the codec takes and gives them in structured mode: U-frames
// without the P/F bit, S-frames reduced to their low four bits.
constexpr uint8_t kSnrm = 0x83;
constexpr uint8_t kDisc = 0x43;
constexpr uint8_t kXid = 0xAF;
constexpr uint8_t kRr = 0x01;
constexpr uint8_t kUa = 0x63;

// XID information: format identifier, group identifier, group length, parameters.
constexpr uint8_t kFormatId = 0x81;
constexpr uint8_t kAldGroup = 0xF0;
constexpr uint8_t kHdlcGroup = 0x80;
constexpr uint8_t kParamUid = 0x01;
constexpr uint8_t kParamAddress = 0x02;
constexpr uint8_t kParamMask = 0x03;
constexpr uint8_t kParamDeviceType = 0x04;
constexpr uint8_t kParamVendorCode = 0x06;
constexpr uint8_t kParamReset = 0x07;

}  // namespace aisg

#endif
