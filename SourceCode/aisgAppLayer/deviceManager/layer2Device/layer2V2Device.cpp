#include "aisgAppLayer/deviceManager/layer2Device/layer2V2Device.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "aisgAppLayer/commManager/aisgFrame.h"
#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "aisgAppLayer/commManager/xidReader.h"
#include "aisgAppLayer/commManager/xidWriter.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "utility/debugTrace.h"
#include "utility/hexText.h"
#include "utility/threadLock.h"

namespace {

using namespace aisg;

// What the parameter walker found.
constexpr int kGotUid = 0x01;
constexpr int kGotDeviceType = 0x02;
constexpr int kGotVendorCode = 0x04;
constexpr int kGotAll = kGotUid | kGotDeviceType | kGotVendorCode;

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

// The reset and the HDLC parameters are acknowledged by an XID known by its first parameter alone.
bool isXidWithFirstParameter(const S_HdlcPacket& reply, uint8_t id) {
  return reply.control == kXid && reply.dataLength > kXidParameters && reply.data[kXidParameters] == id;
}

// Copies the parameters of `wanted` from an ALD group reply into info. Returns the
// flags of the parameters copied, or -1 for a malformed reply: a parameter that
// runs past the reply's data, a value too short for its meaning, or a UID longer
// than the record's field. Such a reply is refused whole rather than cut, since
// a cut UID would address some other ALD.
int readAldParameters(const S_HdlcPacket& reply, S_AldBaseInfo* info, int wanted) {
  XidReader reader(reply);
  int flags = 0;
  for (S_XidParameter parameter; reader.next(parameter);) {
    const uint8_t* value = parameter.value;
    if (parameter.id == kParamUid && (wanted & kGotUid) != 0) {
      if (parameter.length > sizeof(info->uid)) return -1;
      memcpy(info->uid, value, parameter.length);
      info->uidLength = parameter.length;
      flags |= kGotUid;
    } else if (parameter.id == kParamDeviceType && (wanted & kGotDeviceType) != 0) {
      if (parameter.length < 1) return -1;
      info->deviceType = value[0];
      flags |= kGotDeviceType;
    } else if (parameter.id == kParamVendorCode && (wanted & kGotVendorCode) != 0) {
      if (parameter.length < 2) return -1;
      info->vendorCode[0] = value[0];
      info->vendorCode[1] = value[1];
      info->vendorCode[2] = 0;
      flags |= kGotVendorCode;
    }
  }
  return reader.malformed() ? -1 : flags;
}

// One frame without data, answered by the given control value. replyControl, if
// given, receives the control value of a reply from the target.
int exchangeWithoutData(Device& device, uint8_t address, uint8_t control, uint8_t expected,
                        uint8_t* replyControl = nullptr) {
  S_HdlcPacket packet = makeFrame(address, control);
  int ret = device.sendCmdAndWaitResponse(&packet, Layer2V2Device::kExchangeTimeoutMs);
  if (ret != E_EXCHANGE_SUCCESS) return ret;
  if (replyControl != nullptr) *replyControl = packet.control;
  return packet.control == expected ? E_EXCHANGE_SUCCESS : E_EXCHANGE_WRONG_REPLY;
}

unsigned int maxBitsFor(unsigned char maxUidLength) {
  return std::min<unsigned int>(maxUidLength, kMaxScanUidLength) * 8u;
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
  // An object that joins the container between two scans.
  void add(AldDevice* ald) {
    ThreadLockGuard guard(_lock);
    _current.push_back(ald);
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

// The address for an ALD that a search has confirmed; 0 when none is left.
using AddressChooser = std::function<unsigned int(const S_AldBaseInfo&)>;

// Confirms the ALD that answered alone by its full UID and gives it the address
// that addressFor chooses; appends it to found, ADDRESSED, once it holds one.
void confirmAndAssign(Layer2V2Device& device, S_AldBaseInfo& info, const AddressChooser& addressFor,
                      std::vector<S_AldBaseInfo>& found) {
  S_UidScanUintV2_t confirmation{};
  confirmation.uidLength = info.uidLength;
  memcpy(confirmation.uid, info.uid, info.uidLength);
  memset(confirmation.mask, 0xFF, info.uidLength);
  if (device.oneScan(confirmation, &info) != 0) return;
  const unsigned int address = addressFor(info);
  if (address == 0) {
    TRACE(2, "device scan has no address left for another ALD\n");
    return;
  }
  info.status = ASSIGNING;
  // The reply goes into the record only when it is the right one; a partial one must
  // not change the UID that was confirmed.
  S_AldBaseInfo assigned = info;
  const int ret = device.addressAssign(&assigned, static_cast<uint8_t>(address));
  // Nobody answered: the ALD has not taken the address, which stays free.
  if (ret == E_EXCHANGE_TIME_OUT) return;
  if (ret == E_EXCHANGE_SUCCESS) {
    TRACE(3, "device scan addrassign success!\n");
    info = assigned;
  } else {
    // A reply came, garbled or wrong: the ALD most likely took the address, and given to
    // the next ALD as well it would make two collide on every poll. It counts as taken,
    // and the link set-up (or the poll loop after it) finds out whether the ALD is there.
    TRACE(2, "device scan addrassign reply failed (%d), address %u taken as given\n", ret, address);
  }
  info.address = static_cast<uint8_t>(address);
  info.status = ADDRESSED;
  found.push_back(info);
}

// Probes the first step of the queue, and gives an ALD that answers alone an
// address (confirmAndAssign); a collision queues the step's children, the 0 branch
// first, so that the search goes breadth-first. The probe's result.
int probeNext(Layer2V2Device& device, std::deque<S_UidScanUintV2_t>& queue, unsigned int maxBits,
              const AddressChooser& addressFor, std::vector<S_AldBaseInfo>& found) {
  const S_UidScanUintV2_t step = queue.front();
  queue.pop_front();
  S_AldBaseInfo info{};
  const int ret = device.oneScan(step, &info);
  if (ret == E_EXCHANGE_TIME_OUT) {
    TRACE(2, "device scan timeout\n");
  } else if (ret == E_EXCHANGE_SUCCESS) {
    TRACE(3, "device scan only\n");
    confirmAndAssign(device, info, addressFor, found);
  } else if (ret == E_EXCHANGE_UNDECODABLE) {
    TRACE(3, "device scan conflict\n");
    appendChildren(step, maxBits, queue);
  } else {
    TRACE(3, "oneScan ret others = %d \n", ret);
  }
  return ret;
}

bool hasAddress(const std::vector<S_AldBaseInfo>& found, unsigned int address) {
  return std::any_of(found.begin(), found.end(), [address](const S_AldBaseInfo& f) { return f.address == address; });
}

// The record of the ALD with this UID, or null.
AldDevice* findByUid(AldDeviceContainer* container, const S_AldBaseInfo& info) {
  for (AldDevice* ald = container->getBeginAldDeviceObj(); ald != nullptr && !container->isEnd();
       ald = container->getNextAldDeviceObj()) {
    const S_AldBaseInfo& known = ald->baseInfo;
    if (known.uidLength == info.uidLength && memcmp(known.uid, info.uid, info.uidLength) == 0) return ald;
  }
  return nullptr;
}

AldDevice* newAldDevice(const S_AldBaseInfo& found) {
  AldDevice* ald = new AldDevice();
  ald->address = found.address;
  ald->deviceType = found.deviceType;
  ald->aisgVersion = 2;
  ald->baseInfo = found;
  return ald;
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
  uint8_t reply = 0;
  const int ret = exchangeWithoutData(*this, address, kRr, kRr, &reply);
  return reply == kDm ? E_EXCHANGE_DISCONNECTED_MODE : ret;
}

int Layer2V2Device::openLink(AldDevice& ald) {
  const int ret = linkEstablish(ald.address);
  if (ret != E_EXCHANGE_SUCCESS) return ret;
  TRACE(4, "linkEstablish addr[%d] success,then set status=RUNNING\n", ald.address);
  // The communication thread writes the numbers from each reply under its data lock:
  // they start at 0 apart from it, and only then is the ALD shown RUNNING, so that no
  // command goes out with the numbers of the link before.
  _pCommInterface->apartFromReplies([&ald] {
    ald.setSendNo(0);
    ald.setReceiveNo(0);
  });
  ald.clearFailedCount();
  ald.clearAddressAissgnRetryCount();
  ald.setStatus(RUNNING);
  return E_EXCHANGE_SUCCESS;
}

int Layer2V2Device::resetDevice(unsigned char address) {
  S_HdlcPacket packet = makeFrame(address, kXid);
  XidWriter(packet, kAldGroup).add(kParamReset, nullptr, 0);
  int ret = sendCmdAndWaitResponse(&packet, kExchangeTimeoutMs);
  if (ret == E_EXCHANGE_SUCCESS && !isXidWithFirstParameter(packet, kParamReset)) return E_EXCHANGE_WRONG_REPLY;
  TRACE(4, "resetDevice() ret = %d\n", ret);
  return ret;
}

int Layer2V2Device::hdlcParameter(unsigned char address) {
  static const uint8_t zeros[4] = {};
  S_HdlcPacket packet = makeFrame(address, kXid);
  XidWriter xid(packet, kHdlcGroup);
  xid.add(kHdlcParamMaxTransmitLength, zeros, 4);
  xid.add(kHdlcParamMaxReceiveLength, zeros, 4);
  xid.add(kHdlcParamTransmitWindow, zeros, 1);
  xid.add(kHdlcParamReceiveWindow, zeros, 1);
  int ret = sendCmdAndWaitResponse(&packet, kExchangeTimeoutMs);
  if (ret != E_EXCHANGE_SUCCESS) return ret;
  // The ALD acknowledges with its transmit window size (7), not an echo of the request (5).
  return isXidWithFirstParameter(packet, kHdlcParamTransmitWindow) ? E_EXCHANGE_SUCCESS : E_EXCHANGE_WRONG_REPLY;
}

int Layer2V2Device::addressAssign(S_AldBaseInfo* info, unsigned char address) {
  TRACE(4, "addressAssign(%d) start\n", address);
  S_HdlcPacket packet = makeFrame(kBroadcastAddress, kXid);
  XidWriter xid(packet, kAldGroup);
  if (info->uidLength > sizeof(info->uid) || xid.add(kParamUid, info->uid, info->uidLength) != 0) return -1;
  xid.add(kParamAddress, &address, 1);
  int ret = sendCmdAndWaitResponse(&packet, kExchangeTimeoutMs);
  if (ret != E_EXCHANGE_SUCCESS) return ret;
  XidReader reply(packet);
  if (!reply.isGroup(kAldGroup) || reply.groupLength() == 0) return E_EXCHANGE_WRONG_REPLY;
  const int wanted = kGotUid | kGotDeviceType;
  return readAldParameters(packet, info, wanted) == wanted ? E_EXCHANGE_SUCCESS : E_EXCHANGE_WRONG_REPLY;
}

int Layer2V2Device::oneScan(S_UidScanUintV2_t step, S_AldBaseInfo* info) {
  TRACE(4, "oneScan() start!\n");
  const uint8_t n = step.uidLength;
  if (n > sizeof(step.uid)) return -1;
  S_HdlcPacket packet = makeFrame(kBroadcastAddress, kXid);
  XidWriter xid(packet, kAldGroup);
  xid.add(kParamUid, step.uid, n);
  xid.add(kParamMask, step.mask, n);
  int ret = sendCmdAndWaitResponse(&packet, kExchangeTimeoutMs);
  if (ret != E_EXCHANGE_SUCCESS) {
    TRACE(2, "serialport send or reveice failed\n");
    return ret;
  }
  XidReader reply(packet);
  if (!reply.isGroup(kAldGroup)) {
    TRACE(2, "serialport send or reveice failed\n");
    return -1;
  }
  if (reply.groupLength() == 0) {
    TRACE(2, "reply params failed[flag = 0x%x]\n", 0);
    return -1;
  }
  const int flags = readAldParameters(packet, info, kGotAll);
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
  TRACE(4, "start device scan start!\n");
  TRACE(4, "reset devices!\n");
  resetDevice(kBroadcastAddress);

  // After the reset every ALD is without an address, and they are numbered from 1.
  // A discovery under way searched a bus that the reset has just renumbered.
  _discoveryQueue.clear();
  std::vector<S_AldBaseInfo> foundList;
  const AddressChooser nextAddress = [&foundList](const S_AldBaseInfo&) -> unsigned int {
    return foundList.size() < kLastAddress ? static_cast<unsigned int>(foundList.size()) + 1 : 0;
  };
  std::deque<S_UidScanUintV2_t> scanQueue{S_UidScanUintV2_t{}};
  while (!scanQueue.empty()) probeNext(*this, scanQueue, maxBitsFor(maxUidLength), nextAddress, foundList);

  deviceCount = static_cast<unsigned char>(foundList.size());
  AldDeviceContainer* container = AldDeviceContainer::getInstance();
  container->clear();
  std::vector<AldDevice*> fresh;
  for (const S_AldBaseInfo& found : foundList) {
    AldDevice* ald = newAldDevice(found);
    container->attach(ald);
    fresh.push_back(ald);
  }
  aldGenerations().turnOver(std::move(fresh));

  for (AldDevice* ald = container->getBeginAldDeviceObj(); ald != nullptr && !container->isEnd();
       ald = container->getNextAldDeviceObj()) {
    openLink(*ald);
  }
  return 0;
}

int Layer2V2Device::deviceDiscover(unsigned char maxUidLength, unsigned char& deviceCount) {
  AldDeviceContainer* container = AldDeviceContainer::getInstance();
  std::vector<S_AldBaseInfo> found;
  // A known UID is an ALD that lost its address (a power cycle): its own address
  // again. A newcomer the lowest that neither a record nor this search holds.
  auto addressFor = [&](const S_AldBaseInfo& info) -> unsigned int {
    if (AldDevice* known = findByUid(container, info)) return known->address;
    for (unsigned int address = 1; address <= kLastAddress; ++address) {
      if (container->findAldDeviceObj(static_cast<uint8_t>(address)) == nullptr && !hasAddress(found, address)) {
        return address;
      }
    }
    return 0;
  };
  if (_discoveryQueue.empty()) _discoveryQueue.push_back(S_UidScanUintV2_t{});
  int probed = E_EXCHANGE_SUCCESS;
  while (!_discoveryQueue.empty() && probed != E_EXCHANGE_TIME_OUT) {
    probed = probeNext(*this, _discoveryQueue, maxBitsFor(maxUidLength), addressFor, found);
  }
  deviceCount = static_cast<unsigned char>(found.size());
  for (const S_AldBaseInfo& info : found) {
    AldDevice* ald = container->findAldDeviceObj(info.address);
    const bool known = ald != nullptr;
    if (known) {
      ald->setStatus(ADDRESSED);
    } else {
      ald = newAldDevice(info);
      container->attach(ald);
      aldGenerations().add(ald);
    }
    const int linked = openLink(*ald);
    TRACE(3, "discovery found %s ALD %s at address %d, link %s\n", known ? "the known" : "a new",
          hexText(info.uid, info.uidLength, "").c_str(), info.address, linked == E_EXCHANGE_SUCCESS ? "up" : "down");
  }
  return _discoveryQueue.empty() ? 0 : 1;
}
