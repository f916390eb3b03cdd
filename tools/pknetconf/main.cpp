// pknetconf: the NETCONF face of the AISG service for an O-RAN M-Plane client.
#include <signal.h>

#include <cstdio>
#include <string>

#include "aldQueueClient.h"
#include "common/configFile.h"
#include "netconfOptions.h"
#include "netconfServer.h"
#include "utility/debugTrace.h"

int main(int argc, char** argv) {
  S_NetconfOptions options;
  std::string error;
  if (parseNetconfOptions(argc, argv, &options, &error) != 0) {
    fprintf(stderr, "pknetconf: %s (see --help)\n", error.c_str());
    return 1;
  }
  if (options.help) {
    fputs(netconfHelp().c_str(), stdout);
    return 0;
  }
  nc_verbosity(options.verbose ? NC_VERB_VERBOSE : NC_VERB_ERROR);
  // A request that fails validation is the client's error, and the client gets
  // its message in the rpc-error: the log keeps it only with --verbose.
  if (!options.verbose) ly_log_options(LY_LOSTORE_LAST);
  // The configuration's own report is no business of this program's output.
  gLogLevel = 0;
  ConfigFile* config = ConfigFile::getInstance();

  // Every thread leaves the ending signals to sigwait below; a client that goes
  // away mid-reply ends its session, not the server.
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGTERM);
  sigaddset(&ending, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);
  signal(SIGPIPE, SIG_IGN);

  AldQueueClient::getInstance();
  NetconfServer server(options, config->_portName);
  if (server.start(&error) != 0) {
    fprintf(stderr, "pknetconf: %s\n", error.c_str());
    return 1;
  }
  printf("pknetconf: listening on %s port %u for user %s; command queue 0x%x, response queue 0x%x\n",
         options.address.c_str(), options.port, options.user.c_str(), config->_commandMsgKey, config->_responseMsgKey);
  fflush(stdout);
  int received = 0;
  sigwait(&ending, &received);
  server.stop();
  return 0;
}
