#include "aisgAppLayer/deviceManager/layer2Device/layer2DeviceContainer.h"

Layer2DeviceContainer* Layer2DeviceContainer::_pLayer2DeviceContainer = nullptr;

Layer2DeviceContainer* Layer2DeviceContainer::getInstance() {
  if (_pLayer2DeviceContainer == nullptr) _pLayer2DeviceContainer = new Layer2DeviceContainer();
  return _pLayer2DeviceContainer;
}

Layer2DeviceContainer::Layer2DeviceContainer()
    : _devices([](const Layer2Device* device) -> uint8_t { return device->aisgVersion; }) {}
