#include "rpcError.h"

nc_server_reply* rpcErrorReply(lyd_node* error, const std::string& message, const char* path) {
  nc_err_set_msg(error, message.c_str(), "en");
  if (path != nullptr) nc_err_set_path(error, path);
  return nc_server_reply_err(error);
}
