#include "netconfOptions.h"

#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

std::string defaultYangDir() {
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
  std::string folder = n > 0 ? std::string(self, static_cast<size_t>(n)) : std::string(".");
  folder = folder.substr(0, folder.find_last_of('/') + 1);
  const std::string installed = folder + "../share/pylonkeeper/yang";
  const std::string built = folder + "share/pylonkeeper/yang";
  return access((installed + "/o-ran-ald.yang").c_str(), R_OK) == 0 || access(built.c_str(), F_OK) != 0 ? installed
                                                                                                          : built;
}

std::string netconfHelp() {
  S_NetconfOptions defaults;
  return "usage: pknetconf [options]\n"
         "\n"
         "NETCONF server of the O-RAN ald-communication RPC: each RPC's frame goes to\n"
         "the AISG service on its command queue, and the service's reply comes back\n"
         "as the RPC's output. Serves the state of the one ALD port, port-id 0.\n"
         "\n"
         "  --address ADDR          address to listen on (default " + defaults.address + ")\n"
         "  --port N                SSH port (default " + std::to_string(defaults.port) + ")\n"
         "  --user NAME             the one user name that may log in (default " + defaults.user + ")\n"
         "  --authorized-keys FILE  public keys that may log in as that user, one per line\n"
         "                          as in OpenSSH (TYPE BASE64 [COMMENT]; RSA, ECDSA, Ed25519)\n"
         "                          (default " + defaults.authorizedKeys + ")\n"
         "  --host-key FILE         the server's private host key; an ECDSA key is made\n"
         "                          there at the first start when none exists\n"
         "                          (default " + defaults.hostKey + ")\n"
         "  --yang-dir DIR          the folder of o-ran-ald.yang and o-ran-ald-port.yang\n"
         "                          (default share/pylonkeeper/yang beside bin/:\n"
         "                          " + defaults.yangDir + ")\n"
         "  -v, --verbose           the NETCONF engine's messages too\n"
         "  -h, --help              this text\n"
         "\n"
         "The queue keys are CommandMsgKey and ResponseMsgKey of the service's\n"
         "configuration file /mnt/curflash/currsw/oridata/aisg.bin (defaults 0x400004\n"
         "and 0x400005); the IETF modules come from " PK_IETF_YANG_DIR ".\n"
         "Only public-key authentication is offered. SIGTERM or SIGINT ends the server.\n";
}

int parseNetconfOptions(int argc, char** argv, S_NetconfOptions* options, std::string* error) {
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      options->help = true;
      continue;
    }
    if (arg == "-v" || arg == "--verbose") {
      options->verbose = true;
      continue;
    }
    std::string* text = arg == "--address"           ? &options->address
                        : arg == "--user"            ? &options->user
                        : arg == "--authorized-keys" ? &options->authorizedKeys
                        : arg == "--host-key"        ? &options->hostKey
                        : arg == "--yang-dir"        ? &options->yangDir
                                                     : nullptr;
    if (text == nullptr && arg != "--port") {
      *error = "unknown option " + arg;
      return -1;
    }
    if (i + 1 >= argc || argv[i + 1][0] == '\0') {
      *error = arg + " needs a value";
      return -1;
    }
    const char* value = argv[++i];
    if (text != nullptr) {
      *text = value;
      continue;
    }
    errno = 0;
    char* end = nullptr;
    long port = strtol(value, &end, 10);
    if (errno != 0 || *end != '\0' || port < 1 || port > 65535) {
      *error = std::string("bad port \"") + value + "\"";
      return -1;
    }
    options->port = static_cast<uint16_t>(port);
  }
  return 0;
}
