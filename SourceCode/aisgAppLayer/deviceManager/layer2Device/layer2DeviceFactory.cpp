#include "aisgAppLayer/deviceManager/layer2Device/layer2DeviceFactory.h"

#include "aisgAppLayer/deviceManager/layer2Device/layer2V2Device.h"
#include "utility/debugTrace.h"

Layer2Device* Layer2DeviceFactory::creatLayer2DeviceObj(unsigned char version, DeviceCommInterface* comm) {
  if (version != 2) {
    TRACE(4, "Creat Layer2V2Device failed. \n");
    return nullptr;
  }
  TRACE(4, "Creat Layer2V2Device\n");
  Layer2Device* device = new Layer2V2Device();
  TRACE(4, "Creat Layer2V2Device success ,then set DevComm Interface. \n");
  device->_pCommInterface = comm;
  device->aisgVersion = 2;
  // The other fields of Device mean nothing for a layer-2 device; keep them defined.
  device->address = 0;
  device->deviceType = 0;
  return device;
}
