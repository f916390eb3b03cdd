#ifndef PK_COMMON_CONFIG_FILE_H
#define PK_COMMON_CONFIG_FILE_H

#include <string>

// The fixed path of the configuration file.
extern const char* configFileFullName;

// The settings of the service, read once from the configuration file.
class ConfigFile {
 public:
  static ConfigFile* getInstance();

  std::string _version;
  std::string _portName;
  std::string _projectPath;
  int _commandMsgKey;
  int _responseMsgKey;
  int _shareMemKey;
  // Seconds between two searches for ALDs plugged in while the others run; 0 or less: none.
  int _discoveryPeriod;

  // Reads a file of the same syntax into a fresh object; the singleton reads configFileFullName.
  explicit ConfigFile(const char* path);

 private:
  void parseLine(const char* line);

  static ConfigFile* _pConfigFile;
};

#endif
