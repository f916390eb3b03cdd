#ifndef PK_TOOLS_PKNETCONF_RPC_ERROR_H
#define PK_TOOLS_PKNETCONF_RPC_ERROR_H

#include <libyang/libyang.h>
#include <nc_server.h>

#include <string>

// An rpc-error reply of the error that nc_err made, with a message in English
// and, when given, the path of the node in error.
nc_server_reply* rpcErrorReply(lyd_node* error, const std::string& message, const char* path = nullptr);

#endif
