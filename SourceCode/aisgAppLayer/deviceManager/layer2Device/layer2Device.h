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
};

#endif
