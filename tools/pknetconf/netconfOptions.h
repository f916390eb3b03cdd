#ifndef PK_TOOLS_PKNETCONF_NETCONF_OPTIONS_H
#define PK_TOOLS_PKNETCONF_NETCONF_OPTIONS_H

#include <cstdint>
#include <string>

// share/pylonkeeper/yang beside the program's folder (installed: bin/..; in the
// build folder: the folder itself), whichever holds the modules.
std::string defaultYangDir();

// The settings of pknetconf, from its command line.
struct S_NetconfOptions {
  std::string address = "0.0.0.0";
  uint16_t port = 830;
  std::string user = "oran";
  std::string authorizedKeys = "/mnt/curflash/currsw/oridata/netconf_authorized_keys";
  std::string hostKey = "/mnt/curflash/currsw/oridata/netconf_host_key";
  std::string yangDir = defaultYangDir();
  bool verbose = false;
  bool help = false;
};

// The help text, with the defaults.
std::string netconfHelp();

// Reads the command line into *options. 0, or -1 with the reason in *error.
int parseNetconfOptions(int argc, char** argv, S_NetconfOptions* options, std::string* error);

#endif
