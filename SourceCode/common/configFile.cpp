#include "common/configFile.h"

#include <strings.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "utility/debugTrace.h"

const char* configFileFullName = "/mnt/curflash/currsw/oridata/aisg.bin";

ConfigFile* ConfigFile::_pConfigFile = nullptr;

namespace {

constexpr int kLineBuffer = 256;
constexpr int kLineLimit = 255;
constexpr int kWordBuffer = 120;

// The keys in table order; a key is looked up against them without regard to case.
enum ConfigKey {
  KEY_VERSION,
  KEY_PORT_NAME,
  KEY_PROJECT_PATH,
  KEY_COMMAND_MSG,
  KEY_RESPONSE_MSG,
  KEY_SHARE_MEM,
  KEY_DISCOVERY_PERIOD,
  KEY_COUNT
};
const char* const kKeyNames[KEY_COUNT] = {"Version",     "PortName",    "ProjectPath",    "CommandMsgKey",
                                          "ResponseMsgKey", "ShareMemKey", "DiscoveryPeriod"};

void readNumber(const char* text, int& member) {
  errno = 0;
  long value = strtol(text, nullptr, 0);
  // A key is a 32-bit word on every platform: what does not fit is out of range.
  if (errno == 0 && value >= INT32_MIN && value <= INT32_MAX) member = static_cast<int>(value);
}

}  // namespace

ConfigFile* ConfigFile::getInstance() {
  if (_pConfigFile == nullptr) _pConfigFile = new ConfigFile(configFileFullName);
  return _pConfigFile;
}

ConfigFile::ConfigFile(const char* path)
    : _version("defalut"),
      _portName("/dev/ttyPS1"),
      _projectPath("/mnt/curflash/currsw/app/pylonkeeper"),
      _commandMsgKey(0x400004),
      _responseMsgKey(0x400005),
      _shareMemKey(0x400009),
      _discoveryPeriod(60) {
  FILE* file = fopen(path, "r");
  if (file == nullptr) {
    TRACE(1, "Config file open failed!\n");
    return;
  }
  char line[kLineBuffer];
  while (!feof(file)) {
    memset(line, 0, sizeof(line));
    if (fgets(line, kLineLimit, file) == nullptr) break;
    parseLine(line);
  }
  fclose(file);
  TRACE(3, "Version = %s\n", _version.c_str());
  TRACE(3, "PortName = %s\n", _portName.c_str());
  TRACE(3, "ProjectPath = %s\n", _projectPath.c_str());
  TRACE(3, "CommandMsgKey = 0x%08x\n", _commandMsgKey);
  TRACE(3, "ResponseMsgKey = 0x%08x\n", _responseMsgKey);
  TRACE(3, "ShareMemKey = 0x%08x\n", _shareMemKey);
}

void ConfigFile::parseLine(const char* line) {
  char key[kWordBuffer];
  char value[kWordBuffer];
  memset(key, 0, sizeof(key));
  memset(value, 0, sizeof(value));
  // The key runs to the first blank only; the value is bounded by its buffer.
  if (sscanf(line, "%50[^ ] %119s", key, value) < 2) return;
  for (int k = 0; k < KEY_COUNT; ++k) {
    if (strcasecmp(key, kKeyNames[k]) != 0) continue;
    switch (k) {
      case KEY_VERSION: _version = value; break;
      case KEY_PORT_NAME: _portName = value; break;
      case KEY_PROJECT_PATH: _projectPath = value; break;
      case KEY_COMMAND_MSG: readNumber(value, _commandMsgKey); break;
      case KEY_RESPONSE_MSG: readNumber(value, _responseMsgKey); break;
      case KEY_SHARE_MEM: readNumber(value, _shareMemKey); break;
      case KEY_DISCOVERY_PERIOD: readNumber(value, _discoveryPeriod); break;
      default: break;
    }
    return;
  }
}
