#include "connectedSockets.h"

#include <dirent.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cstdlib>

std::vector<int> connectedSockets() {
  std::vector<int> sockets;
  DIR* folder = opendir("/proc/self/fd");
  if (folder == nullptr) return sockets;
  for (dirent* entry = readdir(folder); entry != nullptr; entry = readdir(folder)) {
    if (entry->d_name[0] == '.') continue;
    int fd = atoi(entry->d_name);
    struct stat status;
    int listening = 0;
    socklen_t size = sizeof(listening);
    if (fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode) &&
        getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) == 0 && listening == 0) {
      sockets.push_back(fd);
    }
  }
  closedir(folder);
  return sockets;
}
