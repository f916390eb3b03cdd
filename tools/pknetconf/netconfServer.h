#ifndef PK_TOOLS_PKNETCONF_NETCONF_SERVER_H
#define PK_TOOLS_PKNETCONF_NETCONF_SERVER_H

#include <libyang/libyang.h>
#include <nc_server.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "authorizedKeys.h"
#include "netconfOptions.h"

// The NETCONF engine with its modules, one SSH endpoint, and the threads that
// accept sessions and serve their RPCs: o-ran-ald:ald-communication and a get
// of the ALD ports' state, and get-schema. The engine itself answers
// close-session, and refuses every other operation. One server per process.
class NetconfServer {
 public:
  NetconfServer(const S_NetconfOptions& options, const std::string& portName);
  ~NetconfServer();
  NetconfServer(const NetconfServer&) = delete;
  NetconfServer& operator=(const NetconfServer&) = delete;

  // Loads the modules and the keys, listens, and starts the threads. 0, or -1
  // with the reason in *error.
  int start(std::string* error);
  // Ends the threads and every session.
  void stop();

 private:
  static nc_server_reply* serveRpc(lyd_node* rpc, nc_session* session);
  static int checkPublicKey(const nc_session* session, ssh_key key, void* server);
  static int giveHostKey(const char* name, void* server, char** path, char** data, NC_SSH_KEY_TYPE* type);
  nc_server_reply* serveGet(const lyd_node* rpc) const;
  static nc_server_reply* serveGetSchema(const lyd_node* rpc);
  int loadModules(std::string* error);
  void addSession(nc_session* session);
  void acceptSessions();
  void pollSessions();

  const S_NetconfOptions _options;
  const std::string _portName;
  AuthorizedKeys _keys;
  ly_ctx* _ctx = nullptr;
  bool _engineUp = false;
  nc_pollsession* _sessions = nullptr;
  std::atomic<bool> _running{false};
  std::mutex _lock;
  std::condition_variable _sessionAdded;
  int _sessionCount = 0;  // under _lock
  std::thread _acceptThread;
  std::vector<std::thread> _pollThreads;

  static NetconfServer* _pRunning;
};

#endif
