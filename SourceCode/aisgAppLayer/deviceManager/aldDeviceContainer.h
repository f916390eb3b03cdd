#ifndef PK_DEVICEMANAGER_ALD_DEVICE_CONTAINER_H
#define PK_DEVICEMANAGER_ALD_DEVICE_CONTAINER_H

#include <cstddef>

#include "aisgAppLayer/deviceManager/aldDevice.h"
#include "aisgAppLayer/deviceManager/deviceContainer.h"

// The ALDs by HDLC address.
class AldDeviceContainer {
 public:
  static AldDeviceContainer* getInstance();

  void attach(AldDevice* device) { _devices.attach(device); }
  void dettach(AldDevice* device) { _devices.dettach(device); }
  void clear() { _devices.clear(); }
  AldDevice* findAldDeviceObj(unsigned char address) { return _devices.find(address); }
  AldDevice* getBeginAldDeviceObj() { return _devices.begin(); }
  AldDevice* getNextAldDeviceObj() { return _devices.next(); }
  bool isEnd() { return _devices.isEnd(); }
  std::size_t getAldDeviceNums() { return _devices.size(); }

 private:
  AldDeviceContainer();

  DeviceContainer<AldDevice> _devices;

  static AldDeviceContainer* _pAldDeviceContainer;
};

#endif
