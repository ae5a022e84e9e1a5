#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

#include "qor/socket/SocketEndpoint.h"

namespace qor::bench {

/// An endpoint in a private directory, like those of hosts.
class PrivateEndpoint {
 public:
  PrivateEndpoint() {
    std::string path = (std::filesystem::temp_directory_path() / "benchmark-XXXXXX").string();
    if (::mkdtemp(path.data()) == nullptr) throw std::runtime_error("cannot create a directory for sockets");
    directory_ = path;
  }
  ~PrivateEndpoint() {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }
  PrivateEndpoint(const PrivateEndpoint&) = delete;
  PrivateEndpoint& operator=(const PrivateEndpoint&) = delete;

  std::string text() const { return "ipc://" + (directory_ / "socket").string(); }
  socket::SocketEndpoint endpoint() const { return socket::SocketEndpoint::FromString(text()); }

 private:
  std::filesystem::path directory_;
};

}  // namespace qor::bench
