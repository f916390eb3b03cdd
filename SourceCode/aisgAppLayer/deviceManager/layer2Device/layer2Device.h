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
  // One step of the search for ALDs without an address, without a reset: a probe
  // of them all, and the UID search below it when they collide. A step goes on
  // probing until one probe has waited out its time, so that a search among many
  // similar UIDs takes many steps instead of holding up the polls between them.
  // A newcomer gets the lowest free address and a record, an ALD already known its
  // own record's address back; each is linked. deviceCount receives the number
  // found in this step. 1 while the search goes on, 0 when it is done.
  virtual int deviceDiscover(unsigned char maxUidLength, unsigned char& deviceCount) = 0;
};

#endif
