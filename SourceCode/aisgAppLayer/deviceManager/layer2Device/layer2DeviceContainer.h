#ifndef PK_LAYER2DEVICE_LAYER2_DEVICE_CONTAINER_H
#define PK_LAYER2DEVICE_LAYER2_DEVICE_CONTAINER_H

#include "aisgAppLayer/deviceManager/deviceContainer.h"
#include "aisgAppLayer/deviceManager/layer2Device/layer2Device.h"

// The layer-2 devices by AISG version.
class Layer2DeviceContainer {
 public:
  static Layer2DeviceContainer* getInstance();

  void attach(Layer2Device* device) { _devices.attach(device); }
  void dettach(Layer2Device* device) { _devices.dettach(device); }
  void clear() { _devices.clear(); }
  Layer2Device* findLayer2DeviceObj(unsigned char version) { return _devices.find(version); }
  Layer2Device* getBeginLayer2DeviceObj() { return _devices.begin(); }
  Layer2Device* getNextLayer2DeviceObj() { return _devices.next(); }
  bool isEnd() { return _devices.isEnd(); }

 private:
  Layer2DeviceContainer();

  DeviceContainer<Layer2Device> _devices;

  static Layer2DeviceContainer* _pLayer2DeviceContainer;
};

#endif
