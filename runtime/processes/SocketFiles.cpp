#include "runtime/processes/SocketFiles.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

namespace qor::processes {

void removeSocketFiles(std::initializer_list<socket::SocketEndpoint> endpoints,
                       const std::filesystem::path& directory) {
  std::error_code ignored;
  for (const auto& endpoint : endpoints) {
    if (endpoint.transport() != socket::SocketEndpoint::Transport::Ipc) continue;
    const std::filesystem::path file = endpoint.host();
    if (std::filesystem::is_socket(file, ignored)) std::filesystem::remove(file, ignored);
  }
  if (!directory.empty()) std::filesystem::remove(directory, ignored);
}

std::filesystem::path makePrivateDirectory() {
  std::string path = (std::filesystem::temp_directory_path() / "qor-XXXXXX").string();
  if (::mkdtemp(path.data()) == nullptr) {
    throw std::system_error(errno, std::system_category(), "cannot make a directory for sockets, " + path);
  }
  return path;
}

}  // namespace qor::processes
