#ifndef PK_LAYER2DEVICE_LAYER2_V2_DEVICE_H
#define PK_LAYER2DEVICE_LAYER2_V2_DEVICE_H

#include <cstdint>
#include <deque>

#include "aisgAppLayer/deviceManager/layer2Device/layer2Device.h"

// One node of the UID prefix tree that the scan walks.
struct S_UidScanUintV2_t {
  uint8_t uidLength;
  uint8_t bitPosition;
  uint8_t uid[20];
  uint8_t mask[20];
};

// AISG version 2 on the bus: the six link procedures, the device scan and the
// discovery of ALDs plugged in later.
class Layer2V2Device : public Layer2Device {
 public:
  static constexpr unsigned int kExchangeTimeoutMs = 1000;

  Layer2V2Device() = default;
  ~Layer2V2Device() override = default;

  int deviceScan(unsigned char maxUidLength, unsigned char& deviceCount) override;
  int addressAssign(S_AldBaseInfo* info, unsigned char address) override;
  int linkEstablish(unsigned char address) override;
  int disconnect(unsigned char address) override;
  int resetDevice(unsigned char address) override;
  int hdlcParameter(unsigned char address) override;
  // 0 on RR; E_EXCHANGE_DISCONNECTED_MODE on DM; else as every procedure.
  int devicePoll(unsigned char address) override;
  int openLink(AldDevice& ald) override;
  int deviceDiscover(unsigned char maxUidLength, unsigned char& deviceCount) override;

  int oneScan(S_UidScanUintV2_t step, S_AldBaseInfo* info);

 private:
  // The steps of the discovery's search still to probe, kept from one step to the next.
  std::deque<S_UidScanUintV2_t> _discoveryQueue;
};

#endif
