#include "aisgAppLayer/deviceManager/device.h"

#include "aisgAppLayer/commManager/aisgFrame.h"
#include "utility/debugTrace.h"

int Device::commandSend(unsigned char* data, unsigned int length) {
  if (_pCommInterface == nullptr) return -1;
  _pCommInterface->commandSend(data, length);
  return 0;
}

int Device::waitReadResponseData(unsigned char* data, unsigned int length, unsigned int time) {
  if (_pCommInterface == nullptr) return -1;
  return _pCommInterface->waitReadResponseData(data, length, time) < 0 ? E_EXCHANGE_TIME_OUT : E_EXCHANGE_SUCCESS;
}

int Device::sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int time) {
  TRACE(4, "sendCmdAndWaitResponse start\n");
  if (_pCommInterface == nullptr) {
    TRACE(4, "_pCommInterface = NULL\n");
    return -1;
  }
  return _pCommInterface->sendCmdAndWaitResponse(packet, time);
}
