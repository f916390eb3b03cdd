#ifndef PK_DEVICEMANAGER_ALD_DEVICE_H
#define PK_DEVICEMANAGER_ALD_DEVICE_H

#include <cstdint>

#include "aisgAppLayer/deviceManager/device.h"

enum E_AldStatus : uint8_t {
  LOST = 0,
  ASSIGNING = 1,
  ADDRESSED = 2,
  RUNNING = 3,
};

// The base information of one ALD, as the scan found it.
struct S_AldBaseInfo {
  uint8_t address;
  uint8_t deviceType;
  uint8_t uidLength;
  uint8_t uid[20];
  uint8_t status;
  uint8_t reserved;
  uint8_t vendorCode[3];
};
static_assert(sizeof(S_AldBaseInfo) == 28, "S_AldBaseInfo is a record of bytes");

// The record of one antenna line device; it sends nothing itself.
class AldDevice : public Device {
 public:
  static constexpr uint8_t kFailureThreshold = 5;

  AldDevice();
  ~AldDevice() override = default;

  void getUid(unsigned char* uid);
  void setUid(unsigned char* uid);
  void setSendNo(unsigned char number);
  void setReceiveNo(unsigned char number);
  void addFailedCount();
  void clearFailedCount();
  void addAddressAissgnRetryCount();
  void clearAddressAissgnRetryCount();

  // The status byte is written by the run machine's thread and read by the
  // interaction thread without a lock: it is read and written whole, atomically.
  uint8_t getStatus() const { return __atomic_load_n(&baseInfo.status, __ATOMIC_RELAXED); }
  void setStatus(uint8_t status) { __atomic_store_n(&baseInfo.status, status, __ATOMIC_RELAXED); }

  S_AldBaseInfo baseInfo;
  uint8_t sendNo;
  uint8_t receiveNo;
  uint8_t failedCount;
  uint8_t addressAssignRetryCount;
};

#endif
