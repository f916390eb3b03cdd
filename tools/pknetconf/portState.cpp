#include "portState.h"

int buildPortState(const ly_ctx* ctx, const std::string& portName, lyd_node** tree) {
  *tree = nullptr;
  const lys_module* module = ly_ctx_get_module_implemented(ctx, "o-ran-ald-port");
  lyd_node* ports = nullptr;
  lyd_node* port = nullptr;
  std::string id = std::to_string(kServedPortId);
  if (module == nullptr || lyd_new_inner(nullptr, module, "ald-ports-io", 0, &ports) != LY_SUCCESS) return -1;
  if (lyd_new_list(ports, nullptr, "ald-port", 0, &port, portName.c_str()) != LY_SUCCESS ||
      lyd_new_term(port, nullptr, "port-id", id.c_str(), 0, nullptr) != LY_SUCCESS) {
    lyd_free_tree(ports);
    return -1;
  }
  *tree = ports;
  return 0;
}
