#include "stateFilter.h"

#include <cstring>
#include <vector>

namespace {

// A filter element's namespace and text, whether libyang knew its schema or not.
std::string namespaceOf(const lyd_node* node) {
  if (node->schema != nullptr) return node->schema->module->ns;
  const char* ns = reinterpret_cast<const lyd_node_opaq*>(node)->name.module_ns;
  return ns != nullptr ? ns : "";
}

std::string textOf(const lyd_node* node) {
  const char* text = node->schema != nullptr ? lyd_get_value(node) : reinterpret_cast<const lyd_node_opaq*>(node)->value;
  std::string value = text != nullptr ? text : "";
  size_t first = value.find_first_not_of(" \t\r\n");
  return first == std::string::npos ? "" : value.substr(first, value.find_last_not_of(" \t\r\n") - first + 1);
}

// "/module:name" of a filter element, or "" when no module of the context has its namespace.
std::string step(const ly_ctx* ctx, const lyd_node* node) {
  const lys_module* module = ly_ctx_get_module_implemented_ns(ctx, namespaceOf(node).c_str());
  return module == nullptr ? "" : "/" + std::string(module->name) + ":" + LYD_NAME(node);
}

// A predicate that compares a child with a text, quoted with whichever quote the text lacks.
std::string predicate(const std::string& childStep, const std::string& text) {
  char quote = text.find('\'') == std::string::npos ? '\'' : '"';
  return "[" + childStep.substr(1) + "=" + quote + text + quote + "]";
}

// Subtree filtering as XPath, for one filter element below parent: its content
// match children become predicates; its selection children, or the element
// itself when it has none, become selected paths; its containment children
// are followed.
void elementToXpath(const ly_ctx* ctx, const lyd_node* element, const std::string& parent,
                    std::vector<std::string>* paths) {
  std::string path = step(ctx, element);
  if (path.empty()) return;
  path = parent + path;
  std::vector<std::string> matches;
  std::vector<const lyd_node*> selections;
  for (const lyd_node* child = lyd_child(element); child != nullptr; child = child->next) {
    std::string text = textOf(child);
    std::string childStep = step(ctx, child);
    if (lyd_child(child) == nullptr && !text.empty()) {
      if (childStep.empty()) return;  // a match on what the schema lacks matches nothing
      path += predicate(childStep, text);
      matches.push_back(childStep);
    } else {
      selections.push_back(child);
    }
  }
  if (selections.empty()) {
    paths->push_back(path);
    return;
  }
  for (const std::string& match : matches) paths->push_back(path + match);
  for (const lyd_node* selection : selections) elementToXpath(ctx, selection, path, paths);
}

// Adds every node that path finds in state, with its parents, to *selected.
int addMatches(const lyd_node* state, const std::string& path, lyd_node** selected, std::string* error) {
  ly_set* set = nullptr;
  if (lyd_find_xpath(state, path.c_str(), &set) != LY_SUCCESS) {
    const char* message = ly_errmsg(LYD_CTX(state));
    *error = "invalid filter " + path + (message != nullptr ? std::string(": ") + message : "");
    return -1;
  }
  int result = 0;
  for (uint32_t i = 0; i < set->count && result == 0; ++i) {
    lyd_node* copy = nullptr;
    if (lyd_dup_single(set->dnodes[i], nullptr, LYD_DUP_RECURSIVE | LYD_DUP_WITH_PARENTS, &copy) != LY_SUCCESS) {
      result = -1;
      break;
    }
    while (copy->parent != nullptr) copy = lyd_parent(copy);
    if (lyd_merge_siblings(selected, copy, LYD_MERGE_DESTRUCT) != LY_SUCCESS) result = -1;
  }
  ly_set_free(set, nullptr);
  if (result != 0) *error = "cannot copy the selected state";
  return result;
}

}  // namespace

int selectState(const lyd_node* state, const lyd_node* filter, lyd_node** selected, std::string* error) {
  *selected = nullptr;
  if (state == nullptr) return 0;
  const ly_ctx* ctx = LYD_CTX(state);
  std::vector<std::string> paths;
  const lyd_meta* type = filter != nullptr ? lyd_find_meta(filter->meta, nullptr, "ietf-netconf:type") : nullptr;
  if (filter == nullptr) {
    return lyd_dup_siblings(state, nullptr, LYD_DUP_RECURSIVE, selected) == LY_SUCCESS ? 0 : -1;
  } else if (type != nullptr && strcmp(lyd_get_meta_value(type), "xpath") == 0) {
    const lyd_meta* select = lyd_find_meta(filter->meta, nullptr, "ietf-netconf:select");
    if (select == nullptr) {
      *error = "an xpath filter needs its select attribute";
      return -1;
    }
    paths.push_back(lyd_get_meta_value(select));
  } else {
    const lyd_node_any* any = reinterpret_cast<const lyd_node_any*>(filter);
    if (any->value_type == LYD_ANYDATA_DATATREE) {
      for (const lyd_node* element = any->value.tree; element != nullptr; element = element->next) {
        elementToXpath(ctx, element, "", &paths);
      }
    }
  }
  for (const std::string& path : paths) {
    if (addMatches(state, path, selected, error) != 0) {
      lyd_free_siblings(*selected);
      *selected = nullptr;
      return -1;
    }
  }
  return 0;
}
