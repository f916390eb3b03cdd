#include "netconfServer.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <set>

#include "aldCommunication.h"
#include "aldQueueClient.h"
#include "connectedSockets.h"
#include "hostKey.h"
#include "portState.h"
#include "rpcError.h"
#include "stateFilter.h"

namespace {

const char* const kEndpoint = "ssh";
// Each wait ends after a second at the latest, so that a stop is seen.
constexpr int kWaitMs = 1000;
constexpr unsigned int kFailurePauseUs = 100000;

const char* const kModules[] = {"o-ran-ald-port", "o-ran-ald", "ietf-netconf", "ietf-netconf-monitoring",
                                "ietf-netconf-with-defaults"};

}  // namespace

NetconfServer* NetconfServer::_pRunning = nullptr;

NetconfServer::NetconfServer(const S_NetconfOptions& options, const std::string& portName)
    : _options(options), _portName(portName) {}

NetconfServer::~NetconfServer() { stop(); }

int NetconfServer::loadModules(std::string* error) {
  if (ly_ctx_new(nullptr, LY_CTX_DISABLE_SEARCHDIR_CWD, &_ctx) != LY_SUCCESS ||
      ly_ctx_set_searchdir(_ctx, _options.yangDir.c_str()) != LY_SUCCESS ||
      ly_ctx_set_searchdir(_ctx, PK_IETF_YANG_DIR) != LY_SUCCESS) {
    *error = "cannot search for YANG modules in " + _options.yangDir + " and " PK_IETF_YANG_DIR;
    return -1;
  }
  // No feature of ietf-netconf: the hello offers no datastore operation this server lacks.
  const char* noFeatures[] = {nullptr};
  for (const char* module : kModules) {
    if (ly_ctx_load_module(_ctx, module, nullptr, noFeatures) == nullptr) {
      *error = std::string("cannot load the YANG module ") + module + " from " + _options.yangDir + " or " +
               PK_IETF_YANG_DIR;
      return -1;
    }
  }
  return 0;
}

int NetconfServer::start(std::string* error) {
  if (_pRunning != nullptr) {
    *error = "a server runs already";
    return -1;
  }
  if (_keys.load(_options.authorizedKeys, _options.user, error) != 0 || ensureHostKey(_options.hostKey, error) != 0 ||
      loadModules(error) != 0) {
    return -1;
  }
  if (nc_server_init(_ctx) != 0) {
    *error = "the NETCONF engine did not start";
    return -1;
  }
  _engineUp = true;
  // The engine's own get-schema answers every module with empty data on this
  // libyang: the global callback serves it instead.
  const lysc_node* getSchema = lys_find_path(_ctx, nullptr, "/ietf-netconf-monitoring:get-schema", 0);
  if (getSchema != nullptr) const_cast<lysc_node*>(getSchema)->priv = nullptr;
  _pRunning = this;
  nc_set_global_rpc_clb(serveRpc);
  nc_server_set_capab_withdefaults(NC_WD_EXPLICIT, NC_WD_EXPLICIT);
  nc_server_ssh_set_hostkey_clb(giveHostKey, this, nullptr);
  nc_server_ssh_set_pubkey_auth_clb(checkPublicKey, this, nullptr);
  if (nc_server_add_endpt(kEndpoint, NC_TI_LIBSSH) != 0 ||
      nc_server_ssh_endpt_add_hostkey(kEndpoint, "host", -1) != 0 ||
      nc_server_ssh_endpt_set_auth_methods(kEndpoint, NC_SSH_AUTH_PUBLICKEY) != 0 ||
      nc_server_endpt_set_address(kEndpoint, _options.address.c_str()) != 0 ||
      nc_server_endpt_set_port(kEndpoint, _options.port) != 0) {
    *error = "cannot listen on " + _options.address + " port " + std::to_string(_options.port);
    return -1;
  }
  _wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  _sessions = nc_ps_new();
  if (_wakeFd < 0 || _sessions == nullptr) {
    *error = "cannot make the session set";
    return -1;
  }
  _running = true;
  _acceptThread = std::thread(&NetconfServer::acceptSessions, this);
  _sessionThread = std::thread(&NetconfServer::serveSessions, this);
  return 0;
}

void NetconfServer::stop() {
  _running = false;
  if (_wakeFd >= 0) wake();
  if (_acceptThread.joinable()) _acceptThread.join();
  if (_sessionThread.joinable()) _sessionThread.join();
  _sessionSockets.clear();
  if (_wakeFd >= 0) close(_wakeFd);
  _wakeFd = -1;
  if (_sessions != nullptr) {
    nc_ps_clear(_sessions, 1, nullptr);
    nc_ps_free(_sessions);
    _sessions = nullptr;
  }
  if (_engineUp) nc_server_destroy();
  _engineUp = false;
  if (_ctx != nullptr) ly_ctx_destroy(_ctx);
  _ctx = nullptr;
  if (_pRunning == this) _pRunning = nullptr;
}

void NetconfServer::wake() {
  uint64_t one = 1;
  if (write(_wakeFd, &one, sizeof(one)) < 0) {
    // The counter is full only when the wake-ups are not taken yet: one is enough.
  }
}

void NetconfServer::addSession(nc_session* session, int socket) {
  {
    std::lock_guard<std::mutex> lock(_lock);
    if (nc_ps_add_session(_sessions, session) != 0) {
      nc_session_free(session, nullptr);
      return;
    }
    _sessionSockets[session] = socket;
  }
  wake();
}

int NetconfServer::newSessionSocket() {
  std::lock_guard<std::mutex> lock(_lock);
  std::set<int> known;
  for (const auto& entry : _sessionSockets) known.insert(entry.second);
  for (int socket : connectedSockets()) {
    if (known.count(socket) == 0) return socket;
  }
  return -1;
}

void NetconfServer::acceptSessions() {
  while (_running) {
    nc_session* session = nullptr;
    NC_MSG_TYPE type = nc_accept(kWaitMs, &session);
    if (type == NC_MSG_HELLO) {
      // Sessions are accepted one after the other, so the one connected socket
      // that no session has yet is the new session's.
      addSession(session, newSessionSocket());
    } else if (type == NC_MSG_ERROR) {
      // A failed login or handshake; the pause keeps a broken endpoint from spinning.
      usleep(kFailurePauseUs);
    }
  }
  nc_thread_destroy();
}

void NetconfServer::serveSessions() {
  bool idleWake = false;
  while (_running) {
    std::vector<pollfd> waits = {{_wakeFd, POLLIN, 0}};
    {
      std::lock_guard<std::mutex> lock(_lock);
      for (const auto& entry : _sessionSockets) {
        if (entry.second >= 0) waits.push_back({entry.second, POLLIN, 0});
      }
    }
    poll(waits.data(), waits.size(), kWaitMs);
    uint64_t wakes = 0;
    if (read(_wakeFd, &wakes, sizeof(wakes)) < 0) wakes = 0;
    bool bySocket = false;
    for (size_t i = 1; i < waits.size(); ++i) bySocket = bySocket || waits[i].revents != 0;
    bool served = servePending();
    // A socket that stays ready with nothing for the engine to read must not make this loop spin.
    if (bySocket && !served && idleWake) usleep(kFailurePauseUs);
    idleWake = bySocket && !served;
  }
  nc_thread_destroy();
}

bool NetconfServer::servePending() {
  const int work = NC_PSPOLL_RPC | NC_PSPOLL_BAD_RPC | NC_PSPOLL_REPLY_ERROR | NC_PSPOLL_SESSION_TERM |
                   NC_PSPOLL_SESSION_ERROR | NC_PSPOLL_SSH_MSG | NC_PSPOLL_SSH_CHANNEL;
  bool served = false;
  for (;;) {
    nc_session* session = nullptr;
    int result = nc_ps_poll(_sessions, 0, &session);
    if ((result & NC_PSPOLL_SESSION_TERM) != 0) {
      std::lock_guard<std::mutex> lock(_lock);
      nc_ps_del_session(_sessions, session);
      _sessionSockets.erase(session);
      nc_session_free(session, nullptr);
    } else if ((result & NC_PSPOLL_SSH_CHANNEL) != 0) {
      nc_session* channel = nullptr;
      int socket = -1;
      {
        std::lock_guard<std::mutex> lock(_lock);
        auto found = _sessionSockets.find(session);
        if (found != _sessionSockets.end()) socket = found->second;
      }
      if (nc_ps_accept_ssh_channel(_sessions, &channel) == NC_MSG_HELLO) addSession(channel, socket);
    }
    if ((result & NC_PSPOLL_ERROR) != 0) usleep(kFailurePauseUs);
    if ((result & work) == 0) return served;
    served = true;
  }
}

nc_server_reply* NetconfServer::serveRpc(lyd_node* rpc, nc_session*) {
  const ly_ctx* ctx = LYD_CTX(rpc);
  const char* module = rpc->schema->module->name;
  const char* name = LYD_NAME(rpc);
  if (strcmp(module, "o-ran-ald") == 0 && strcmp(name, "ald-communication") == 0) {
    return serveAldCommunication(rpc, AldQueueClient::getInstance());
  }
  if (strcmp(module, "ietf-netconf") == 0 && strcmp(name, "get") == 0 && _pRunning != nullptr) {
    return _pRunning->serveGet(rpc);
  }
  if (strcmp(module, "ietf-netconf-monitoring") == 0 && strcmp(name, "get-schema") == 0) return serveGetSchema(rpc);
  return nc_server_reply_err(nc_err(ctx, NC_ERR_OP_NOT_SUPPORTED, NC_ERR_TYPE_PROT));
}

nc_server_reply* NetconfServer::serveGet(const lyd_node* rpc) const {
  const ly_ctx* ctx = LYD_CTX(rpc);
  lyd_node* state = nullptr;
  if (buildPortState(ctx, _portName, &state) != 0) {
    return rpcErrorReply(nc_err(ctx, NC_ERR_OP_FAILED, NC_ERR_TYPE_APP), "cannot build the state data");
  }
  lyd_node* filter = nullptr;
  lyd_node* selected = nullptr;
  std::string error;
  lyd_find_path(rpc, "filter", 0, &filter);
  int selection = selectState(state, filter, &selected, &error);
  lyd_free_siblings(state);
  if (selection != 0) return rpcErrorReply(nc_err(ctx, NC_ERR_INVALID_VALUE, NC_ERR_TYPE_PROT), error);
  lyd_node* output = nullptr;
  if (lyd_dup_single(rpc, nullptr, 0, &output) == LY_SUCCESS &&
      lyd_new_any(output, nullptr, "data", selected, 1, LYD_ANYDATA_DATATREE, 1, nullptr) == LY_SUCCESS) {
    return nc_server_reply_data(output, NC_WD_EXPLICIT, NC_PARAMTYPE_FREE);
  }
  lyd_free_tree(output);
  lyd_free_siblings(selected);
  return rpcErrorReply(nc_err(ctx, NC_ERR_OP_FAILED, NC_ERR_TYPE_APP), "cannot build the reply");
}

nc_server_reply* NetconfServer::serveGetSchema(const lyd_node* rpc) {
  const ly_ctx* ctx = LYD_CTX(rpc);
  auto text = [rpc](const char* name) {
    lyd_node* leaf = nullptr;
    return lyd_find_path(rpc, name, 0, &leaf) == LY_SUCCESS ? std::string(lyd_get_value(leaf)) : std::string();
  };
  std::string identifier = text("identifier");
  std::string version = text("version");
  const lys_module* module = version.empty() ? ly_ctx_get_module_latest(ctx, identifier.c_str())
                                             : ly_ctx_get_module(ctx, identifier.c_str(), version.c_str());
  if (module == nullptr) {
    return rpcErrorReply(nc_err(ctx, NC_ERR_INVALID_VALUE, NC_ERR_TYPE_APP),
                         "no module " + identifier + (version.empty() ? "" : " of revision " + version));
  }
  bool yin = text("format") == "ietf-netconf-monitoring:yin";
  char* schema = nullptr;
  lyd_node* output = nullptr;
  if (lys_print_mem(&schema, module, yin ? LYS_OUT_YIN : LYS_OUT_YANG, 0) == LY_SUCCESS &&
      lyd_dup_single(rpc, nullptr, 0, &output) == LY_SUCCESS &&
      lyd_new_any(output, nullptr, "data", schema, 1, LYD_ANYDATA_STRING, 1, nullptr) == LY_SUCCESS) {
    return nc_server_reply_data(output, NC_WD_EXPLICIT, NC_PARAMTYPE_FREE);
  }
  free(schema);
  lyd_free_tree(output);
  return rpcErrorReply(nc_err(ctx, NC_ERR_OP_FAILED, NC_ERR_TYPE_APP), "cannot print the module " + identifier);
}

int NetconfServer::checkPublicKey(const nc_session* session, ssh_key key, void* server) {
  return static_cast<NetconfServer*>(server)->_keys.accepts(nc_session_get_username(session), key) ? 0 : 1;
}

int NetconfServer::giveHostKey(const char*, void* server, char** path, char** data, NC_SSH_KEY_TYPE*) {
  *path = strdup(static_cast<NetconfServer*>(server)->_options.hostKey.c_str());
  *data = nullptr;
  return *path != nullptr ? 0 : -1;
}
