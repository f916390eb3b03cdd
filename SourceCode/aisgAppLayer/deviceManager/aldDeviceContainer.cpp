#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"

AldDeviceContainer* AldDeviceContainer::_pAldDeviceContainer = nullptr;

AldDeviceContainer* AldDeviceContainer::getInstance() {
  if (_pAldDeviceContainer == nullptr) _pAldDeviceContainer = new AldDeviceContainer();
  return _pAldDeviceContainer;
}

AldDeviceContainer::AldDeviceContainer()
    : _devices([](const AldDevice* device) -> uint8_t { return device->address; }) {}
