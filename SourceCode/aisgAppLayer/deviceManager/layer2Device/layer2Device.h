#ifndef PK_LAYER2DEVICE_LAYER2_DEVICE_H
#define PK_LAYER2DEVICE_LAYER2_DEVICE_H

#include "aisgAppLayer/deviceManager/aldDevice.h"
#include "aisgAppLayer/deviceManager/device.h"

// The layer-2 protocol engine: one object serves the whole bus.
class Layer2Device : public Device {
 public:
  ~Layer2Device() override = default;
  virtual int deviceScan(unsigned char maxUidLength, unsigned char& deviceCount) = 0;
  virtual int addressAssign(S_AldBaseInfo* info, unsigned char address) = 0;
  virtual int linkEstablish(unsigned char address) = 0;
  virtual int disconnect(unsigned char address) = 0;
  virtual int resetDevice(unsigned char address) = 0;
  virtual int hdlcParameter(unsigned char address) = 0;
  virtual int devicePoll(unsigned char address) = 0;
  // SNRM to the ALD; on UA its sequence numbers start at 0, its counters are
  // cleared and it is RUNNING. The result of linkEstablish.
  virtual int openLink(AldDevice& ald) = 0;
  // One probe for ALDs without an address; the UID search below it when any
  // answers, without a reset. A newcomer gets the lowest free address and a
  // record, an ALD already known its own record's address back; each is linked.
  // deviceCount receives the number found. Always 0.
  virtual int deviceDiscover(unsigned char maxUidLength, unsigned char& deviceCount) = 0;
};

#endif
