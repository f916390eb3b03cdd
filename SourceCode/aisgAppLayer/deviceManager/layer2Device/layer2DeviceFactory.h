#ifndef PK_LAYER2DEVICE_LAYER2_DEVICE_FACTORY_H
#define PK_LAYER2DEVICE_LAYER2_DEVICE_FACTORY_H

#include "aisgAppLayer/deviceManager/deviceCommInterface.h"
#include "aisgAppLayer/deviceManager/layer2Device/layer2Device.h"

class Layer2DeviceFactory {
 public:
  // A layer-2 device of that AISG version (only 2 exists) on comm, or null. The caller owns it.
  static Layer2Device* creatLayer2DeviceObj(unsigned char version, DeviceCommInterface* comm);
};

#endif
