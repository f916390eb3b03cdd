#ifndef PK_DEVICEMANAGER_DEVICE_H
#define PK_DEVICEMANAGER_DEVICE_H

#include <cstdint>

#include "aisgAppLayer/deviceManager/deviceCommInterface.h"

struct S_HdlcPacket;

// Common fields of every device; forwards to the comm interface.
class Device {
 public:
  Device() = default;
  virtual ~Device() = default;
  virtual int writeReg(unsigned char, unsigned int, unsigned char*, unsigned short) { return 0; }
  virtual int readReg(unsigned char, unsigned int, unsigned char*, unsigned short) { return 0; }
  virtual int pollRead() { return 0; }
  virtual int syncWrite() { return 0; }
  virtual int commandSend(unsigned char* data, unsigned int length);
  virtual int waitReadResponseData(unsigned char* data, unsigned int length, unsigned int time);
  virtual int sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int time);

  DeviceCommInterface* _pCommInterface;
  uint8_t address;
  uint8_t deviceType;
  uint8_t aisgVersion;
};

#endif
