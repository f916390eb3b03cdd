#ifndef PK_TESTS_E2E_HARNESS_H
#define PK_TESTS_E2E_HARNESS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace e2e {

// The path of a program built by the project (pylonkeeper, aldsim, mplanectl, pkstatus).
std::string binPath(const std::string& program);

// The words that run a program of this build: the emulator's words first when the
// build is for another machine (empty on the host).
std::vector<std::string> emulatorWords();
// argv with the emulator's words in front when argv[0] is a program of this build.
std::vector<std::string> withEmulator(const std::vector<std::string>& argv);

// The service's fixed configuration file, written in the sandbox's own folder.
void writeConfig(const std::string& text);
// Reads a whole file; empty when it cannot be read.
std::string readFile(const std::string& path);

// Starts argv (as it stands: no emulator words added) with a pty as its standard
// input, output and error, in raw mode. Its pid with the pty's master in *master,
// or -1. The child starts with every signal at its default and none blocked, so
// that what it does with them is its own, whatever its starter's state.
pid_t spawnOnPty(const std::vector<std::string>& argv, int* master);

// A child process whose standard input and output (and error) are a pty, so that
// its stdout is line-buffered as at a console. Output is gathered as it comes.
class Child {
 public:
  Child() = default;
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // Starts argv[0] with the arguments. False when it could not be started.
  bool start(const std::vector<std::string>& argv);
  // Waits until the output holds `text` after position `from` (or anywhere when
  // from is 0); true when it came within timeoutMs.
  bool waitFor(const std::string& text, int timeoutMs, size_t from = 0);
  // Gathers output for the given time.
  void pump(int milliseconds);
  // Writes text to the child's standard input.
  void send(const std::string& text);
  // Closes the child's standard input side (the pty master's writes: sends EOF).
  void sendEof();
  // Stops the child (SIGTERM, then SIGKILL) and returns its wait status, or -1.
  int stop();
  // Waits for the child to end by itself; its exit code, or -1 on time-out or a signal.
  int waitExit(int timeoutMs);

  const std::string& output() const { return _output; }
  size_t mark() const { return _output.size(); }
  // Output with the trace colour sequences removed.
  std::string plainOutput() const;
  pid_t pid() const { return _pid; }
  bool running();

 private:
  void readAvailable(int timeoutMs);

  pid_t _pid = -1;
  int _master = -1;
  int _status = -1;
  bool _exited = false;
  std::string _output;
};

// Removes the trace colour sequences from text.
std::string stripColours(const std::string& text);

// Sleeps for the given number of milliseconds.
void sleepMs(int milliseconds);

// Processor time (user and system) that a process has used so far, in clock ticks; -1 when unknown.
long cpuTicks(pid_t pid);

}  // namespace e2e

#endif
