#ifndef PK_TOOLS_PKNETCONF_NETCONF_SERVER_H
#define PK_TOOLS_PKNETCONF_NETCONF_SERVER_H

#include <libyang/libyang.h>
#include <nc_server.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>

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
  void wake();
  // Adds an accepted session, whose socket (or -1 when unknown) the session thread waits on.
  void addSession(nc_session* session, int socket);
  int newSessionSocket();
  void acceptSessions();
  // The engine's own wait for its sessions polls them every 0.1 ms: this
  // thread blocks on their sockets instead, and lets the engine read only
  // what is there. One thread serves every session, one message at a time.
  void serveSessions();
  // Serves what the sessions have sent until nothing is left; true when something was.
  bool servePending();

  const S_NetconfOptions _options;
  const std::string _portName;
  AuthorizedKeys _keys;
  ly_ctx* _ctx = nullptr;
  bool _engineUp = false;
  nc_pollsession* _sessions = nullptr;
  std::atomic<bool> _running{false};
  int _wakeFd = -1;  // an eventfd: a new session or the stop ends the session thread's wait
  std::mutex _lock;
  std::map<nc_session*, int> _sessionSockets;  // under _lock
  std::thread _acceptThread;
  std::thread _sessionThread;

  static NetconfServer* _pRunning;
};

#endif
