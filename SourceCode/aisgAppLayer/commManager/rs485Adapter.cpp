#include "aisgAppLayer/commManager/rs485Adapter.h"

#include <fcntl.h>
#include <linux/serial.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

static_assert(TIOCSRS485 == 0x542F, "the RS-485 request of the board's kernel");

const char* const kNotInit = "RS485 dev not init yet!";

// Terminal speed for a plain bit rate; false when the bus does not use it.
bool speedFor(uint32_t baudrate, speed_t& speed) {
  switch (baudrate) {
    case 9600: speed = B9600; return true;
    case 19200: speed = B19200; return true;
    case 38400: speed = B38400; return true;
    case 57600: speed = B57600; return true;
    case 115200: speed = B115200; return true;
    default: return false;
  }
}

// Applies size, stop bits and parity to the control flags; the rejection text or nullptr.
const char* applyFrameFormat(const S_UartConfig& config, tcflag_t& cflag) {
  cflag &= ~CSIZE;
  if (config.dataSize == 7) {
    cflag |= CS7;
  } else if (config.dataSize == 8) {
    cflag |= CS8;
  } else {
    return "ERROR: Unsupported data size";
  }

  if (config.stopBits == 1) {
    cflag &= ~CSTOPB;
  } else if (config.stopBits == 2) {
    cflag |= CSTOPB;
  } else {
    return "ERROR: Unsupported stop bits";
  }

  switch (config.parity) {
    case 'N': case 'n': cflag &= ~PARENB; break;
    case 'E': case 'e': cflag |= PARENB; cflag &= ~PARODD; break;
    case 'O': case 'o': cflag |= PARENB | PARODD; break;
    // Space parity is approximated by no parity and one stop bit, overriding the stop-bit choice.
    case 'S': case 's': cflag &= ~(PARENB | CSTOPB); break;
    default: return "ERROR: Unsupported parity";
  }
  return nullptr;
}

}  // namespace

Rs485Adapter::Rs485Adapter(const char* portName) : _fd(-1), _config{} {
  _fd = open(portName, O_RDWR);
  if (_fd <= 0) {
    printf("ERROR: open %s failed!\n", portName);
    return;
  }
  int flags = fcntl(_fd, F_GETFL);
  fcntl(_fd, F_SETFL, flags & ~O_NONBLOCK);
  _config = S_UartConfig{115200, 8, 1, 'N'};
  setConfig(_config);
}

Rs485Adapter::~Rs485Adapter() {
  if (_fd > 0) {
    close(_fd);
  }
}

int Rs485Adapter::setConfig(const S_UartConfig& config) {
  if (!isOpen()) {
    puts(kNotInit);
    return -1;
  }
  tcflush(_fd, TCIOFLUSH);
  struct termios options;
  memset(&options, 0, sizeof(options));
  tcgetattr(_fd, &options);

  speed_t speed = B0;
  if (!speedFor(config.baudrate, speed)) {
    puts("ERROR: Unsupported baudrate!");
    return -1;
  }
  cfsetispeed(&options, speed);
  cfsetospeed(&options, speed);

  if (const char* rejection = applyFrameFormat(config, options.c_cflag)) {
    puts(rejection);
    return -1;
  }

  options.c_cflag &= ~CRTSCTS;
  options.c_cflag |= CREAD;
  options.c_lflag &= ~(ICANON | ECHO | ECHOE | ISIG);
  options.c_oflag &= ~OPOST;
  options.c_iflag = 0;
  options.c_cc[VTIME] = 0;
  options.c_cc[VMIN] = 1;

  if (tcsetattr(_fd, TCSANOW, &options) != 0) {
    perror("ERROR: Set terminal attribute failed!");
    return -1;
  }

  // The kernel driver alone steers the transceiver direction.
  struct serial_rs485 rs485;
  memset(&rs485, 0, sizeof(rs485));
  rs485.flags = SER_RS485_ENABLED;
  if (ioctl(_fd, TIOCSRS485, &rs485) < 0) {
    puts("ERROR: Set RS485 Conf Error");
    return -1;
  }
  return 0;
}

int Rs485Adapter::getConfig(S_UartConfig&) {
  if (!isOpen()) {
    puts(kNotInit);
    return -1;
  }
  return 0;
}

bool Rs485Adapter::isTerminal() const { return isOpen() && isatty(_fd) == 1; }

int Rs485Adapter::send(unsigned char* buffer, unsigned int length) {
  if (!isOpen()) {
    puts(kNotInit);
    return -1;
  }
  // The whole frame goes out: a write that a signal cut short goes on with the rest.
  for (unsigned int sent = 0; sent < length;) {
    const ssize_t count = write(_fd, buffer + sent, length - sent);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      puts("ERROR: rs485 write error!");
      return -1;
    }
    sent += static_cast<unsigned int>(count);
  }
  return 0;
}

int Rs485Adapter::receive(unsigned char* buffer, unsigned int length) {
  if (!isOpen()) {
    puts(kNotInit);
    return -1;
  }
  ssize_t count;
  do {
    count = read(_fd, buffer, length);
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    puts("ERROR: rs485 read error!");
    return -1;
  }
  return static_cast<int>(count);
}
