#ifndef PK_ALDSIM_SIM_PORT_H
#define PK_ALDSIM_SIM_PORT_H

#include <cstddef>
#include <cstdint>
#include <string>

// The simulator's end of the bus: the master of a pty pair (whose slave the
// primary opens) or an existing tty.
class SimPort {
 public:
  SimPort() = default;
  ~SimPort();
  SimPort(const SimPort&) = delete;
  SimPort& operator=(const SimPort&) = delete;

  // Creates a pty pair with a raw slave, kept open here so that the master never
  // reports a hang-up when the primary closes it. `link`, if not empty, becomes a
  // symlink to the slave. 0, or -1 with the reason in `error`.
  int openPty(const std::string& link, std::string& error);
  // Opens an existing tty, raw at 9600 baud.
  int openTty(const std::string& path, std::string& error);

  int fd() const { return _fd; }
  // The path the primary opens: the pty slave or the tty.
  const std::string& name() const { return _name; }
  const std::string& link() const { return _link; }

  // Writes all bytes, with pacing one byte each 1.04 ms (9600 baud). Bytes that
  // do not fit because nobody reads the other side are dropped. 0, or -1.
  int write(const uint8_t* bytes, size_t length, bool paced);

 private:
  static int makeRaw(int fd);

  int _fd = -1;
  int _slave = -1;
  std::string _name;
  std::string _link;
};

#endif
