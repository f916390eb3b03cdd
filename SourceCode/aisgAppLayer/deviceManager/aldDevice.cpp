#include "aisgAppLayer/deviceManager/aldDevice.h"

#include <cstring>

AldDevice::AldDevice()
    : baseInfo(), sendNo(0), receiveNo(0), failedCount(0), addressAssignRetryCount(0) {
  // An ALD record never talks to the bus; the scan fills in the rest.
  _pCommInterface = nullptr;
  address = 0;
  deviceType = 0;
  aisgVersion = 0;
}

void AldDevice::getUid(unsigned char* uid) { memcpy(uid, baseInfo.uid, sizeof(baseInfo.uid)); }

void AldDevice::setUid(unsigned char* uid) { memcpy(baseInfo.uid, uid, sizeof(baseInfo.uid)); }

void AldDevice::setSendNo(unsigned char number) { sendNo = number & 7; }

void AldDevice::setReceiveNo(unsigned char number) { receiveNo = number & 7; }

void AldDevice::addFailedCount() {
  if (++failedCount >= kFailureThreshold) {
    failedCount = 0;
    setStatus(ADDRESSED);
  }
}

void AldDevice::clearFailedCount() { failedCount = 0; }

void AldDevice::addAddressAissgnRetryCount() {
  if (++addressAssignRetryCount >= kFailureThreshold) {
    addressAssignRetryCount = 0;
    setStatus(LOST);
  }
}

void AldDevice::clearAddressAissgnRetryCount() { addressAssignRetryCount = 0; }
