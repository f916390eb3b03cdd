#include "aldCommunication.h"

#include <cstring>
#include <string>

#include "aldQueueClient.h"
#include "portState.h"
#include "rpcError.h"

namespace {

const char* const kPortIdPath = "/o-ran-ald:ald-communication/port-id";

const lyd_node_term* findLeaf(const lyd_node* rpc, const char* name) {
  lyd_node* leaf = nullptr;
  return lyd_find_path(rpc, name, 0, &leaf) == LY_SUCCESS ? reinterpret_cast<const lyd_node_term*>(leaf) : nullptr;
}

// Why a request got no reply of the service.
std::string failureText(int result) {
  std::string waited = "no reply from the AISG service within " +
                       std::to_string(AldQueueClient::kReplyWaitMs / 1000) + " s";
  switch (result) {
    case E_ALD_EXCHANGE_NOT_SENT:
      return "the request could not be put on the AISG service's command queue";
    case E_ALD_EXCHANGE_WITHDRAWN:
      return waited + "; the request was withdrawn before it reached the bus";
    default:
      return waited + "; the service had taken the request";
  }
}

bool addLeaf(lyd_node* output, const char* name, const std::string& value) {
  return lyd_new_path(output, nullptr, name, value.c_str(), LYD_NEW_PATH_OUTPUT, nullptr) == LY_SUCCESS;
}

}  // namespace

nc_server_reply* serveAldCommunication(const lyd_node* rpc, AldQueueClient* client) {
  const ly_ctx* ctx = LYD_CTX(rpc);
  const lyd_node_term* port = findLeaf(rpc, "port-id");
  if (port == nullptr) {
    return rpcErrorReply(nc_err(ctx, NC_ERR_MISSING_ELEM, NC_ERR_TYPE_PROT, "port-id"), "port-id is mandatory",
                         kPortIdPath);
  }
  if (port->value.uint8 != kServedPortId) {
    return rpcErrorReply(nc_err(ctx, NC_ERR_INVALID_VALUE, NC_ERR_TYPE_APP),
                         "no ALD port has port-id " + std::to_string(port->value.uint8) + "; the only one is " +
                             std::to_string(kServedPortId),
                         kPortIdPath);
  }
  const lyd_node_term* message = findLeaf(rpc, "ald-req-msg");
  const uint8_t* frame = nullptr;
  size_t length = 0;
  if (message != nullptr) {
    // libyang keeps a binary value in the fixed part of the value when it fits there.
    const void* stored = sizeof(lyd_value_binary) > LYD_VALUE_FIXED_MEM_SIZE
                             ? message->value.dyn_mem
                             : static_cast<const void*>(message->value.fixed_mem);
    const lyd_value_binary* binary = static_cast<const lyd_value_binary*>(stored);
    frame = static_cast<const uint8_t*>(binary->data);
    length = binary->size;
  }
  S_InteractionMsg reply;
  size_t replyLength = 0;
  int result = client->exchange(frame, length, &reply, &replyLength);
  bool accepted = result == E_ALD_EXCHANGE_REPLY && reply.result == 1;

  lyd_node* output = nullptr;
  if (lyd_dup_single(rpc, nullptr, 0, &output) != LY_SUCCESS) {
    return rpcErrorReply(nc_err(ctx, NC_ERR_OP_FAILED, NC_ERR_TYPE_APP), "cannot build the reply");
  }
  bool built = addLeaf(output, "port-id", std::to_string(kServedPortId)) &&
               addLeaf(output, "status", accepted ? "ACCEPTED" : "REJECTED");
  if (accepted) {
    built = built &&
            lyd_new_path2(output, nullptr, "ald-resp-msg", reply.data, replyLength, LYD_ANYDATA_STRING,
                          LYD_NEW_PATH_OUTPUT | LYD_NEW_PATH_BIN_VALUE, nullptr, nullptr) == LY_SUCCESS &&
            addLeaf(output, "frames-with-wrong-crc", std::to_string(reply.crcErrorCount)) &&
            addLeaf(output, "frames-without-stop-flag", std::to_string(reply.withoutStopFlagCount)) &&
            addLeaf(output, "number-of-received-octets", std::to_string(reply.receivedOctetsCount));
  } else {
    std::string text = result == E_ALD_EXCHANGE_REPLY ? std::string(reply.errorInfo, strnlen(reply.errorInfo, sizeof(reply.errorInfo)))
                                                      : failureText(result);
    built = built && addLeaf(output, "error-message", text);
  }
  if (!built) {
    lyd_free_tree(output);
    return rpcErrorReply(nc_err(ctx, NC_ERR_OP_FAILED, NC_ERR_TYPE_APP), "cannot build the reply");
  }
  return nc_server_reply_data(output, NC_WD_EXPLICIT, NC_PARAMTYPE_FREE);
}
