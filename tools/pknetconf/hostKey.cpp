#include "hostKey.h"

#include <libssh/libssh.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

int ensureHostKey(const std::string& path, std::string* error) {
  ssh_key key = nullptr;
  if (access(path.c_str(), F_OK) == 0) {
    if (access(path.c_str(), R_OK) != 0) {
      *error = "cannot read the host key " + path + ": " + strerror(errno);
      return -1;
    }
    int imported = ssh_pki_import_privkey_file(path.c_str(), nullptr, nullptr, nullptr, &key);
    ssh_key_free(key);
    if (imported != SSH_OK) {
      *error = "the host key " + path + " is no private key without a passphrase";
      return -1;
    }
    return 0;
  }
  if (ssh_pki_generate(SSH_KEYTYPE_ECDSA_P256, 256, &key) != SSH_OK) {
    *error = "cannot make a host key";
    return -1;
  }
  mode_t mask = umask(077);
  int exported = ssh_pki_export_privkey_file(key, nullptr, nullptr, nullptr, path.c_str());
  umask(mask);
  ssh_key_free(key);
  if (exported != SSH_OK) {
    *error = "cannot write the host key " + path;
    return -1;
  }
  return 0;
}
