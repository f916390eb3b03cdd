#include "aisgAppLayer/deviceManager/layer2Device/layer2V2Device.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <utility>
#include <vector>

#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "aisgAppLayer/deviceManager/layer2Device/aisgFrame.h"
#include "utility/debugTrace.h"
#include "utility/threadLock.h"

namespace {

using namespace aisg;

// Of the HDLC group.
constexpr uint8_t kParamTransmitWindow = 0x07;

// What the parameter walker found.
constexpr int kGotUid = 0x01;
constexpr int kGotDeviceType = 0x02;
constexpr int kGotVendorCode = 0x04;
constexpr int kGotAll = kGotUid | kGotDeviceType | kGotVendorCode;

// 0 is no station and 255 all stations, so a bus holds at most 254 addressed ALDs.
constexpr unsigned int kLastAldAddress = 254;
// The uid and mask of a step end at byte 19, which bit position 152 reaches.
constexpr unsigned int kMaxScanUidLength = 19;

// A primary's frame always has the P bit; sendNo and receiveNo are stamped in by
// the communication manager for a known ALD, so they start at 0 like the rest.
S_HdlcPacket makeFrame(uint8_t address, uint8_t control) {
  S_HdlcPacket packet{};
  packet.pollFinal = 1;
  packet.address = address;
  packet.control = control;
  return packet;
}

void appendBytes(S_HdlcPacket& packet, const uint8_t* bytes, unsigned int count) {
  memcpy(packet.data + packet.dataLength, bytes, count);
  packet.dataLength = static_cast<uint16_t>(packet.dataLength + count);
}

void appendParameter(S_HdlcPacket& packet, uint8_t id, const uint8_t* value, uint8_t length) {
  const uint8_t head[] = {id, length};
  appendBytes(packet, head, sizeof(head));
  appendBytes(packet, value, length);
}

// An XID of the ALD group: format, group and group length are there to read.
bool isAldXidReply(const S_HdlcPacket& reply) {
  return reply.control == kXid && reply.dataLength >= 3 && reply.data[0] == kFormatId &&
         reply.data[1] == kAldGroup;
}

// The reset and the HDLC parameters are acknowledged by an XID known by its first parameter alone.
bool isXidWithFirstParameter(const S_HdlcPacket& reply, uint8_t id) {
  return reply.control == kXid && reply.dataLength > 3 && reply.data[3] == id;
}

// Walks the parameters of an ALD group reply from byte 3 until the group length
// (byte 2) is used up, and copies those of `wanted` into info. Returns the flags of
// the parameters copied, or -1 for a malformed reply: a parameter that runs past
// the reply's data, a value too short for its meaning, or a UID longer than the
// record's field. Such a reply is refused whole rather than cut, since a cut UID
// would address some other ALD.
int walkAldParameters(const S_HdlcPacket& reply, S_AldBaseInfo* info, int wanted) {
  const unsigned int end = std::min<unsigned int>(reply.dataLength, sizeof(reply.data));
  int remaining = reply.data[2];
  unsigned int offset = 3;
  int flags = 0;
  while (remaining > 0) {
    if (offset + 2 > end) return -1;
    const uint8_t id = reply.data[offset];
    const uint8_t length = reply.data[offset + 1];
    const uint8_t* value = reply.data + offset + 2;
    if (offset + 2 + length > end) return -1;
    if (id == kParamUid && (wanted & kGotUid) != 0) {
      if (length > sizeof(info->uid)) return -1;
      memcpy(info->uid, value, length);
      info->uidLength = length;
      flags |= kGotUid;
    } else if (id == kParamDeviceType && (wanted & kGotDeviceType) != 0) {
      if (length < 1) return -1;
      info->deviceType = value[0];
      flags |= kGotDeviceType;
    } else if (id == kParamVendorCode && (wanted & kGotVendorCode) != 0) {
      if (length < 2) return -1;
      info->vendorCode[0] = value[0];
      info->vendorCode[1] = value[1];
      info->vendorCode[2] = 0;
      flags |= kGotVendorCode;
    }
    offset += length + 2u;
    remaining -= length + 2;
  }
  return flags;
}

// One frame without data, answered by the given control value.
int exchangeWithoutData(Device& device, uint8_t address, uint8_t control, uint8_t expected) {
  S_HdlcPacket packet = makeFrame(address, control);
  int ret = device.sendCmdAndWaitResponse(&packet, Layer2V2Device::kExchangeTimeoutMs);
  if (ret != 0) return ret;
  return packet.control == expected ? 0 : -1;
}

// The children of a step that met a collision: the next bit position fixed to 0,
// then to 1, so that the queue goes breadth-first with the 0 branch first.
void appendChildren(S_UidScanUintV2_t step, unsigned int maxBits, std::deque<S_UidScanUintV2_t>& queue) {
  step.bitPosition++;
  if (step.bitPosition > maxBits) return;
  const unsigned int byte = step.bitPosition / 8u;
  const uint8_t bit = static_cast<uint8_t>(1u << (step.bitPosition % 8u));
  step.mask[byte] |= bit;
  step.uidLength = static_cast<uint8_t>(byte + 1);
  queue.push_back(step);
  step.uid[byte] |= bit;
  queue.push_back(step);
}

// The AldDevice objects of the last two scans. A scan's clear drops the objects of
// the scan before from the container, while the communication and interaction
// threads may still hold a pointer that they got from findAldDeviceObj. So the
// dropped generation is kept through the next scan and freed only there: a
// pointer stays good for at least one whole scan after its object left the
// container, and memory holds two generations however many scans run.
class AldGenerations {
 public:
  void turnOver(std::vector<AldDevice*> fresh) {
    ThreadLockGuard guard(_lock);
    for (AldDevice* ald : _retired) delete ald;
    _retired = std::move(_current);
    _current = std::move(fresh);
  }

 private:
  ThreadLock _lock;
  std::vector<AldDevice*> _current;
  std::vector<AldDevice*> _retired;
};

// Never destroyed, like the container that shares its objects.
AldGenerations& aldGenerations() {
  static AldGenerations* generations = new AldGenerations();
  return *generations;
}

}  // namespace

int Layer2V2Device::linkEstablish(unsigned char address) {
  TRACE(4, "linkEstablish(%d) start\n", address);
  return exchangeWithoutData(*this, address, kSnrm, kUa);
}

int Layer2V2Device::disconnect(unsigned char address) {
  return exchangeWithoutData(*this, address, kDisc, kUa);
}

int Layer2V2Device::devicePoll(unsigned char address) {
  TRACE(4, "devicePoll(%d) start\n", address);
  return exchangeWithoutData(*this, address, kRr, kRr);
}

int Layer2V2Device::resetDevice(unsigned char address) {
  static const uint8_t request[] = {kFormatId, kAldGroup, 0x02, kParamReset, 0x00};
  S_HdlcPacket packet = makeFrame(address, kXid);
  appendBytes(packet, request, sizeof(request));
  int ret = sendCmdAndWaitResponse(&packet, kExchangeTimeoutMs);
  if (ret == 0 && !isXidWithFirstParameter(packet, kParamReset)) return -1;
  TRACE(4, "resetDevice() ret = %d\n", ret);
  return ret;
}

int Layer2V2Device::hdlcParameter(unsigned char address) {
  static const uint8_t request[] = {kFormatId, kHdlcGroup, 0x12,
                                    0x05, 0x04, 0x00, 0x00, 0x00, 0x00,
                                    0x06, 0x04, 0x00, 0x00, 0x00, 0x00,
                                    0x07, 0x01, 0x00,
                                    0x08, 0x01, 0x00};
  S_HdlcPacket packet = makeFrame(address, kXid);
  appendBytes(packet, request, sizeof(request));
  int ret = sendCmdAndWaitResponse(&packet, kExchangeTimeoutMs);
  if (ret != 0) return ret;
  // The ALD acknowledges with its transmit window size (7), not an echo of the request (5).
  return isXidWithFirstParameter(packet, kParamTransmitWindow) ? 0 : -1;
}

int Layer2V2Device::addressAssign(S_AldBaseInfo* info, unsigned char address) {
  TRACE(4, "addressAssign(%d) start\n", address);
  const uint8_t n = info->uidLength;
  if (n > sizeof(info->uid)) return -1;
  const uint8_t head[] = {kFormatId, kAldGroup, static_cast<uint8_t>(n + 5)};
  S_HdlcPacket packet = makeFrame(kBroadcastAddress, kXid);
  appendBytes(packet, head, sizeof(head));
  appendParameter(packet, kParamUid, info->uid, n);
  appendParameter(packet, kParamAddress, &address, 1);
  int ret = sendCmdAndWaitResponse(&packet, kExchangeTimeoutMs);
  if (ret != 0) return ret;
  if (!isAldXidReply(packet) || packet.data[2] == 0) return -1;
  const int wanted = kGotUid | kGotDeviceType;
  return walkAldParameters(packet, info, wanted) == wanted ? 0 : -1;
}

int Layer2V2Device::oneScan(S_UidScanUintV2_t step, S_AldBaseInfo* info) {
  TRACE(4, "oneScan() start!\n");
  const uint8_t n = step.uidLength;
  if (n > sizeof(step.uid)) return -1;
  const uint8_t head[] = {kFormatId, kAldGroup, static_cast<uint8_t>(2 * n + 4)};
  S_HdlcPacket packet = makeFrame(kBroadcastAddress, kXid);
  appendBytes(packet, head, sizeof(head));
  appendParameter(packet, kParamUid, step.uid, n);
  appendParameter(packet, kParamMask, step.mask, n);
  int ret = sendCmdAndWaitResponse(&packet, kExchangeTimeoutMs);
  if (ret != 0) {
    TRACE(2, "serialport send or reveice failed\n");
    return ret;
  }
  if (!isAldXidReply(packet)) {
    TRACE(2, "serialport send or reveice failed\n");
    return -1;
  }
  if (packet.data[2] == 0) {
    TRACE(2, "reply params failed[flag = 0x%x]\n", 0);
    return -1;
  }
  const int flags = walkAldParameters(packet, info, kGotAll);
  if (flags < 0) {
    TRACE(2, "serialport send or reveice failed\n");
    return -1;
  }
  if (flags != kGotAll) {
    TRACE(2, "reply params failed[flag = 0x%x]\n", flags);
    return -1;
  }
  return 0;
}

int Layer2V2Device::deviceScan(unsigned char maxUidLength, unsigned char& deviceCount) {
  deviceCount = 0;
  const unsigned int maxBits = std::min<unsigned int>(maxUidLength, kMaxScanUidLength) * 8u;
  TRACE(4, "start device scan start!\n");

  std::vector<S_AldBaseInfo> foundList;
  std::deque<S_UidScanUintV2_t> scanQueue;
  scanQueue.push_back(S_UidScanUintV2_t{});

  TRACE(4, "reset devices!\n");
  resetDevice(kBroadcastAddress);
  unsigned int nextAddress = 1;

  // Confirms the ALD that answered alone by its full UID and gives it the next address.
  auto confirmAndAssign = [&](S_AldBaseInfo& info) {
    S_UidScanUintV2_t confirmation{};
    confirmation.uidLength = info.uidLength;
    memcpy(confirmation.uid, info.uid, info.uidLength);
    memset(confirmation.mask, 0xFF, info.uidLength);
    if (oneScan(confirmation, &info) != 0) return;
    if (nextAddress > kLastAldAddress) {
      TRACE(2, "device scan has no address left for another ALD\n");
      return;
    }
    info.status = ASSIGNING;
    if (addressAssign(&info, static_cast<uint8_t>(nextAddress)) != 0) return;
    TRACE(3, "device scan addrassign success!\n");
    info.address = static_cast<uint8_t>(nextAddress++);
    info.status = ADDRESSED;
    foundList.push_back(info);
  };

  while (!scanQueue.empty()) {
    const S_UidScanUintV2_t step = scanQueue.front();
    scanQueue.pop_front();
    S_AldBaseInfo info{};
    const int ret = oneScan(step, &info);
    if (ret == -2) {
      TRACE(2, "device scan timeout\n");
    } else if (ret == 0) {
      TRACE(3, "device scan only\n");
      confirmAndAssign(info);
    } else if (ret == -3) {
      TRACE(3, "device scan conflict\n");
      appendChildren(step, maxBits, scanQueue);
    } else {
      TRACE(3, "oneScan ret others = %d \n", ret);
    }
  }

  deviceCount = static_cast<unsigned char>(foundList.size());
  AldDeviceContainer* container = AldDeviceContainer::getInstance();
  container->clear();
  std::vector<AldDevice*> fresh;
  for (const S_AldBaseInfo& found : foundList) {
    AldDevice* ald = new AldDevice();
    ald->address = found.address;
    ald->deviceType = found.deviceType;
    ald->aisgVersion = 2;
    ald->baseInfo = found;
    container->attach(ald);
    fresh.push_back(ald);
  }
  aldGenerations().turnOver(std::move(fresh));

  for (AldDevice* ald = container->getBeginAldDeviceObj(); ald != nullptr && !container->isEnd();
       ald = container->getNextAldDeviceObj()) {
    if (linkEstablish(ald->address) != 0) continue;
    TRACE(4, "linkEstablish addr[%d] success,then set status=RUNNING\n", ald->address);
    ald->setStatus(RUNNING);
    ald->setSendNo(0);
    ald->setReceiveNo(0);
  }
  return 0;
}
