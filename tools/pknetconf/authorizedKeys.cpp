#include "authorizedKeys.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

AuthorizedKeys::~AuthorizedKeys() {
  for (ssh_key key : _keys) ssh_key_free(key);
}

int AuthorizedKeys::load(const std::string& path, const std::string& user, std::string* error) {
  std::ifstream in(path);
  if (!in) {
    *error = "cannot read the authorized keys " + path + ": " + strerror(errno);
    return -1;
  }
  _user = user;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    std::istringstream words(line);
    std::string type;
    std::string base64;
    if (!(words >> type) || type[0] == '#') continue;
    ssh_key key = nullptr;
    enum ssh_keytypes_e keyType = ssh_key_type_from_name(type.c_str());
    if (!(words >> base64) || keyType == SSH_KEYTYPE_UNKNOWN ||
        ssh_pki_import_pubkey_base64(base64.c_str(), keyType, &key) != SSH_OK) {
      *error = path + ":" + std::to_string(number) + ": not a public key (TYPE BASE64 [COMMENT])";
      return -1;
    }
    _keys.push_back(key);
  }
  if (_keys.empty()) {
    *error = "no public key in " + path;
    return -1;
  }
  return 0;
}

bool AuthorizedKeys::accepts(const char* user, const ssh_key key) const {
  if (user == nullptr || _user != user) return false;
  for (ssh_key known : _keys) {
    if (ssh_key_cmp(known, key, SSH_KEY_CMP_PUBLIC) == 0) return true;
  }
  return false;
}
