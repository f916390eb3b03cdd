#ifndef PK_COMMMANAGER_RS485_ADAPTER_H
#define PK_COMMMANAGER_RS485_ADAPTER_H

#include <cstdint>

struct S_UartConfig {
  uint32_t baudrate;
  uint8_t dataSize;
  uint8_t stopBits;
  char parity;
};

// The only access to the serial port: raw mode with the kernel's RS-485 mode on.
class Rs485Adapter {
 public:
  explicit Rs485Adapter(const char* portName);
  ~Rs485Adapter();
  Rs485Adapter(const Rs485Adapter&) = delete;
  Rs485Adapter& operator=(const Rs485Adapter&) = delete;

  int setConfig(const S_UartConfig& config);
  int getConfig(S_UartConfig& config);
  int send(unsigned char* buffer, unsigned int length);
  int receive(unsigned char* buffer, unsigned int length);

  bool isOpen() const { return _fd > 0; }
  // Only a terminal makes receive wait for the line; any other file answers at once.
  bool isTerminal() const;

 private:
  int _fd;
  S_UartConfig _config;
};

#endif
