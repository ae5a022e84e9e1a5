#include "runtime/processes/SocketFiles.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>

#include "runtime/base/FileDescriptor.h"

namespace qor::processes {

namespace {

namespace fs = std::filesystem;

/// The paths of all bound sockets of this machine, as they were spelled when they were bound.
std::set<std::string> boundPaths() {
  std::set<std::string> paths;
  std::ifstream sockets("/proc/net/unix");
  for (std::string line; std::getline(sockets, line);) {
    const auto path = line.find(" /");
    if (path != std::string::npos) paths.insert(line.substr(path + 1));
  }
  return paths;
}

/// The errno of a connection attempt; 0 when it is accepted. Connecting is the reliable test, since the
/// system lists only the spelling that a path was bound by. The listener sees a peer connect and disconnect.
int tryToConnect(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  path.copy(address.sun_path, path.size());
  const base::FileDescriptor probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const bool isConnected =
      ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  return isConnected ? 0 : errno;
}

}  // namespace

void removeSocketFiles(std::initializer_list<socket::SocketEndpoint> endpoints, const fs::path& directory,
                       BoundBy boundBy) {
  std::error_code ignored;
  for (const auto& endpoint : endpoints) {
    if (endpoint.transport() != socket::SocketEndpoint::Transport::Ipc) continue;
    const fs::path file = endpoint.host();
    const bool isOurs = boundBy == BoundBy::Us && !directory.empty() && file.parent_path() == directory;
    if (fs::is_socket(file, ignored) && (isOurs || tryToConnect(file.string()) == ECONNREFUSED))
      fs::remove(file, ignored);
  }
  if (!directory.empty()) fs::remove(directory, ignored);
}

void requireNobodyListens(std::initializer_list<socket::SocketEndpoint> endpoints) {
  for (const auto& endpoint : endpoints) {
    if (endpoint.transport() != socket::SocketEndpoint::Transport::Ipc) continue;
    const int error = tryToConnect(endpoint.host());
    // EAGAIN: more have connected than it has accepted so far.
    if (error == 0 || error == EAGAIN) {
      throw std::runtime_error("cannot listen on " + endpoint.host() + ": it is in use");
    }
  }
}

bool removeIfUnused(const fs::path& directory) {
  std::error_code ignored;
  const auto bound = boundPaths();
  for (const auto& entry : fs::directory_iterator(directory, ignored)) {
    if (bound.contains(entry.path().string())) return false;
  }
  fs::remove_all(directory, ignored);
  return true;
}

PrivateDirectory::PrivateDirectory() {
  std::error_code error;
  const fs::path parent = fs::temp_directory_path(error);
  if (error) {
    const char* const wanted = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe): nobody sets it
    throw std::system_error(
        error, "cannot create a directory for sockets in " +
                   (wanted == nullptr ? std::string("/tmp") : "\"" + std::string(wanted) + "\" (TMPDIR)"));
  }
  // The system lists sockets by the paths that they were bound by.
  std::string path = (fs::absolute(parent) / "qor-XXXXXX").string();
  if (::mkdtemp(path.data()) == nullptr) {
    throw std::system_error(errno, std::system_category(), "cannot create a directory for sockets, " + path);
  }
  path_ = path;
}

PrivateDirectory::~PrivateDirectory() {
  std::error_code ignored;
  // Removing an empty directory needs no descriptor; listing it does.
  if (isOurs_ && !fs::remove(path_, ignored)) fs::remove_all(path_, ignored);
}

}  // namespace qor::processes
