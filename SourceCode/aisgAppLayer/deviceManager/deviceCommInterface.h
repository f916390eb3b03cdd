#ifndef PK_DEVICEMANAGER_DEVICE_COMM_INTERFACE_H
#define PK_DEVICEMANAGER_DEVICE_COMM_INTERFACE_H

#include <functional>

struct S_HdlcPacket;

// The way to the bus that a device holds; the communication manager implements it.
class DeviceCommInterface {
 public:
  virtual ~DeviceCommInterface() = default;
  virtual int readResponseData(unsigned char* data, unsigned int length) {
    (void)data;
    (void)length;
    return 0;
  }
  virtual int waitReadResponseData(unsigned char* data, unsigned int length, unsigned int time) {
    (void)data;
    (void)length;
    (void)time;
    return 0;
  }
  virtual void commandSend(unsigned char* data, unsigned int length) = 0;
  // Packet form: an E_ExchangeResult, with the reply in packet on success.
  virtual int sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int time) = 0;
  // Raw form: 0 reply (the raw bytes replace data), -1 no reply in time. Only what
  // came after the request, and from its address unless it went to all stations.
  virtual int sendCmdAndWaitResponse(unsigned char* data, int* length, unsigned int time) = 0;
  virtual void clearStatusData() = 0;
  // Runs work apart from the processing of replies, which writes the ALDs' sequence
  // numbers from each frame: how a link set up anew starts its numbers at 0.
  virtual void apartFromReplies(const std::function<void()>& work) { work(); }
};

#endif
