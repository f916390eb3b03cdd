#include "simPort.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// Ten bits per byte at 9600 baud.
constexpr long kByteNs = 1041667;

void addNs(struct timespec& t, long ns) {
  t.tv_nsec += ns;
  while (t.tv_nsec >= 1000000000L) {
    t.tv_nsec -= 1000000000L;
    ++t.tv_sec;
  }
}

std::string reason(const std::string& what) { return what + ": " + strerror(errno); }

}  // namespace

SimPort::~SimPort() {
  if (!_link.empty()) unlink(_link.c_str());
  if (_slave >= 0) close(_slave);
  if (_fd >= 0) close(_fd);
}

int SimPort::makeRaw(int fd) {
  struct termios t;
  if (tcgetattr(fd, &t) != 0) return -1;
  cfmakeraw(&t);
  cfsetispeed(&t, B9600);
  cfsetospeed(&t, B9600);
  t.c_cflag |= CLOCAL | CREAD;
  t.c_cc[VMIN] = 1;
  t.c_cc[VTIME] = 0;
  return tcsetattr(fd, TCSANOW, &t);
}

int SimPort::openPty(const std::string& link, std::string& error) {
  _fd = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
  if (_fd < 0 || grantpt(_fd) != 0 || unlockpt(_fd) != 0) {
    error = reason("cannot create a pty");
    return -1;
  }
  const char* slave = ptsname(_fd);
  if (slave == nullptr) {
    error = reason("no pty slave");
    return -1;
  }
  _name = slave;
  _slave = open(slave, O_RDWR | O_NOCTTY);
  if (_slave < 0 || makeRaw(_slave) != 0) {
    error = reason("cannot set up " + _name);
    return -1;
  }
  if (link.empty()) return 0;
  // Replace a link left by an earlier run, but never a real file.
  struct stat st;
  if (lstat(link.c_str(), &st) == 0) {
    if (!S_ISLNK(st.st_mode)) {
      error = link + " exists and is not a symlink";
      return -1;
    }
    unlink(link.c_str());
  }
  if (symlink(slave, link.c_str()) != 0) {
    error = reason("cannot link " + link);
    return -1;
  }
  _link = link;
  return 0;
}

int SimPort::openTty(const std::string& path, std::string& error) {
  _fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
  if (_fd < 0 || makeRaw(_fd) != 0) {
    error = reason("cannot open " + path);
    return -1;
  }
  _name = path;
  return 0;
}

int SimPort::write(const uint8_t* bytes, size_t length, bool paced) {
  struct timespec next;
  clock_gettime(CLOCK_MONOTONIC, &next);
  size_t done = 0;
  while (done < length) {
    size_t chunk = paced ? 1 : length - done;
    ssize_t n = ::write(_fd, bytes + done, chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return -1;
    done += static_cast<size_t>(n);
    if (paced && done < length) {
      addNs(next, kByteNs);
      clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
    }
  }
  return 0;
}
