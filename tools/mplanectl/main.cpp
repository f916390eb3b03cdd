// mplanectl: one request to the AISG service as the M-Plane service sends it,
// through the command queue, and its reply from the response queue.
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "InteractionLayer/interactionMsg.h"
#include "common/configFile.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "systemServerLayer/msgAlloc/queueLoop.h"
#include "utility/debugTrace.h"
#include "utility/hexText.h"

namespace {

enum E_ExitStatus { E_EXIT_SUCCESS = 0, E_EXIT_FAILURE_REPLY = 1, E_EXIT_TIME_OUT = 2, E_EXIT_USAGE = 3 };

constexpr unsigned int kPollUs = 10000;
constexpr unsigned int kAddressControl = 2;

const char* const kHelp =
    "usage: mplanectl [options] ADDR CONTROL [INFO ...]\n"
    "       mplanectl [options] --raw FILE\n"
    "\n"
    "Sends one request to the AISG service on its command queue, the way the\n"
    "M-Plane service does, and prints the reply from the response queue.\n"
    "\n"
    "  ADDR, CONTROL   one byte each in hexadecimal: 03, 0x10\n"
    "  INFO            information bytes in hexadecimal, in one or more words:\n"
    "                  880000 or 88 00 00\n"
    "\n"
    "options:\n"
    "  --timeout MS    how long to wait for the reply (default 3000)\n"
    "  --type N        type word of the request (default 1; any positive one is served)\n"
    "  --reserved N    the reserved byte, which the reply echoes (default 0)\n"
    "  --size N        text size of the request (default dataLength + 150)\n"
    "  --raw FILE      send FILE as the whole record: the type word in 4 bytes,\n"
    "                  little-endian, then the text\n"
    "  -h, --help      this text\n"
    "\n"
    "The queue keys are CommandMsgKey and ResponseMsgKey of the configuration file\n"
    "(defaults 0x400004 and 0x400005). Replies left on the response queue are\n"
    "thrown away before the request goes out.\n"
    "\n"
    "exit status: 0 success reply, 1 failure reply, 2 no reply in time,\n"
    "3 usage or queue error\n";

struct Options {
  long timeoutMs = 3000;
  long type = 1;
  long reserved = 0;
  long size = -1;
  std::string rawFile;
  std::vector<std::string> words;
};

[[noreturn]] void usageError(const std::string& text) {
  fprintf(stderr, "mplanectl: %s (see --help)\n", text.c_str());
  exit(E_EXIT_USAGE);
}

long number(const char* text, long low, long high, const char* what) {
  errno = 0;
  char* end = nullptr;
  long value = strtol(text, &end, 0);
  if (errno != 0 || end == text || *end != '\0' || value < low || value > high) {
    usageError(std::string("bad ") + what + " \"" + text + "\"");
  }
  return value;
}

// One byte in hexadecimal, with or without 0x.
unsigned long hexByte(const std::string& word, const char* what) {
  errno = 0;
  char* end = nullptr;
  unsigned long value = strtoul(word.c_str(), &end, 16);
  if (errno != 0 || end == word.c_str() || *end != '\0' || value > 0xFF || word[0] == '-') {
    usageError(std::string("bad ") + what + " \"" + word + "\"");
  }
  return value;
}

// Hexadecimal bytes, an optional 0x in front, two digits each.
void appendHex(const std::string& word, std::vector<uint8_t>* bytes) {
  std::string digits = word.compare(0, 2, "0x") == 0 || word.compare(0, 2, "0X") == 0 ? word.substr(2) : word;
  if (digits.empty() || digits.size() % 2 != 0 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
    usageError("bad hexadecimal bytes \"" + word + "\"");
  }
  for (size_t i = 0; i < digits.size(); i += 2) {
    bytes->push_back(static_cast<uint8_t>(strtoul(digits.substr(i, 2).c_str(), nullptr, 16)));
  }
}

Options parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    auto value = [&]() -> const char* {
      if (i + 1 >= argc) usageError(arg + " needs a value");
      return argv[++i];
    };
    if (arg == "-h" || arg == "--help") {
      fputs(kHelp, stdout);
      exit(E_EXIT_SUCCESS);
    } else if (arg == "--timeout") {
      options.timeoutMs = number(value(), 0, 24L * 3600 * 1000, "time-out");
    } else if (arg == "--type") {
      options.type = number(value(), INT32_MIN, INT32_MAX, "type word");
    } else if (arg == "--reserved") {
      options.reserved = number(value(), 0, 255, "reserved byte");
    } else if (arg == "--size") {
      options.size = number(value(), 0, interaction::kMaxText, "size");
    } else if (arg == "--raw") {
      options.rawFile = value();
    } else if (arg.size() > 2 && arg[0] == '-' && arg[1] == '-') {
      usageError("unknown option " + arg);
    } else {
      options.words.push_back(arg);
    }
  }
  if (options.rawFile.empty() && options.words.size() < 2) usageError("ADDR and CONTROL are needed");
  if (!options.rawFile.empty() && !options.words.empty()) usageError("--raw takes no bytes besides the file");
  return options;
}

// The record to send and its text size.
std::vector<unsigned char> buildRequest(const Options& options, size_t* textSize) {
  std::vector<unsigned char> record(kRecordTypeSize + kMaxQueueText, 0);
  if (!options.rawFile.empty()) {
    std::ifstream in(options.rawFile, std::ios::binary);
    if (!in) usageError("cannot read " + options.rawFile);
    std::vector<unsigned char> file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (file.size() < kRecordTypeSize || file.size() > record.size()) usageError("a raw record has 4 to 2052 bytes");
    uint32_t type = file[0] | (file[1] << 8) | (file[2] << 16) | (static_cast<uint32_t>(file[3]) << 24);
    std::copy(file.begin(), file.end(), record.begin());
    setRecordType(record.data(), static_cast<int32_t>(type));
    *textSize = file.size() - kRecordTypeSize;
    return record;
  }
  std::vector<uint8_t> frame;
  frame.push_back(static_cast<uint8_t>(hexByte(options.words[0], "address")));
  frame.push_back(static_cast<uint8_t>(hexByte(options.words[1], "control byte")));
  for (size_t i = kAddressControl; i < options.words.size(); ++i) appendHex(options.words[i], &frame);
  if (frame.size() > interaction::kMaxDataLength) usageError("more bytes than the data field holds");
  S_InteractionMsg* msg = reinterpret_cast<S_InteractionMsg*>(record.data());
  msg->msgType = static_cast<int32_t>(options.type);
  msg->reserved = static_cast<uint8_t>(options.reserved);
  msg->dataLength = static_cast<uint32_t>(frame.size());
  memcpy(msg->data, frame.data(), frame.size());
  *textSize = options.size >= 0 ? static_cast<size_t>(options.size) : frame.size() + interaction::kHeaderSize;
  return record;
}

int openQueue(int key, const char* name) {
  int id = msgget(key, 0);
  if (id < 0) {
    fprintf(stderr, "mplanectl: no %s queue of key 0x%x: %s (is the service running?)\n", name, key, strerror(errno));
    exit(E_EXIT_USAGE);
  }
  return id;
}

void printReply(const S_InteractionMsg& reply, ssize_t textSize) {
  printf("result: %d (%s)\n", reply.result, reply.result == 1 ? "success" : "failure");
  if (reply.result != 1) printf("errorInfo: %.*s\n", static_cast<int>(sizeof(reply.errorInfo)), reply.errorInfo);
  printf("crcErrorCount: %u\n", reply.crcErrorCount);
  printf("withoutStopFlagCount: %u\n", reply.withoutStopFlagCount);
  printf("receivedOctetsCount: %u\n", reply.receivedOctetsCount);
  printf("reserved: %u\n", reply.reserved);
  printf("reply size: %zd\n", textSize);
  if (reply.result != 1) return;
  // Only what the queue text carried of the data field.
  size_t carried = textSize > static_cast<ssize_t>(interaction::kHeaderSize - kRecordTypeSize)
                       ? static_cast<size_t>(textSize) - (interaction::kHeaderSize - kRecordTypeSize)
                       : 0;
  uint32_t length = reply.dataLength;
  size_t shown = std::min<size_t>(std::min<size_t>(length, carried), interaction::kMaxDataLength);
  printf("dataLength: %u\n", length);
  if (shown >= 1) printf("address: %02X\n", reply.data[0]);
  if (shown >= 2) printf("control: %02X\n", reply.data[1]);
  const size_t infoLength = shown > kAddressControl ? shown - kAddressControl : 0;
  printf("info:%s%s\n", infoLength > 0 ? " " : "", hexText(reply.data + kAddressControl, infoLength).c_str());
}

}  // namespace

int main(int argc, char** argv) {
  Options options = parse(argc, argv);
  // The configuration's own report is no business of this tool's output.
  gLogLevel = 0;
  ConfigFile* config = ConfigFile::getInstance();
  size_t textSize = 0;
  std::vector<unsigned char> request = buildRequest(options, &textSize);
  int command = openQueue(config->_commandMsgKey, "command");
  int response = openQueue(config->_responseMsgKey, "response");

  S_InteractionMsg reply;
  drainQueue(response, E_DRAIN_ALL_MSGS);
  if (msgcheckAndsnd(command, request.data(), textSize, 0) != 0) {
    fprintf(stderr, "mplanectl: the request was not sent: %s\n", strerror(errno));
    return E_EXIT_USAGE;
  }
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(options.timeoutMs);
  for (;;) {
    ssize_t n = recordReceive(response, &reply, interaction::kMaxText, 0, IPC_NOWAIT | MSG_NOERROR);
    if (n >= 0) {
      printReply(reply, n);
      return reply.result == 1 ? E_EXIT_SUCCESS : E_EXIT_FAILURE_REPLY;
    }
    if (errno != ENOMSG) {
      fprintf(stderr, "mplanectl: receive from the response queue failed: %s\n", strerror(errno));
      return E_EXIT_USAGE;
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      fprintf(stderr, "mplanectl: no reply within %ld ms\n", options.timeoutMs);
      return E_EXIT_TIME_OUT;
    }
    usleep(kPollUs);
  }
}
