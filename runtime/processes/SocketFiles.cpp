#include "runtime/processes/SocketFiles.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <system_error>

namespace qor::processes {

namespace {

namespace fs = std::filesystem;

/// The paths of all sockets that a process of this machine has bound. The system is asked, since a socket
/// that is tried out would take that for a peer.
std::set<std::string> boundPaths() {
  std::set<std::string> paths;
  std::ifstream sockets("/proc/net/unix");
  for (std::string line; std::getline(sockets, line);) {
    const auto path = line.find(" /");
    if (path != std::string::npos) paths.insert(line.substr(path + 1));
  }
  return paths;
}

}  // namespace

void removeSocketFiles(std::initializer_list<socket::SocketEndpoint> endpoints, const fs::path& directory) {
  std::error_code ignored;
  const auto bound = boundPaths();
  for (const auto& endpoint : endpoints) {
    if (endpoint.transport() != socket::SocketEndpoint::Transport::Ipc) continue;
    const fs::path file = endpoint.host();
    const bool isOurs = !directory.empty() && file.parent_path() == directory;
    if (fs::is_socket(file, ignored) && (isOurs || !bound.contains(file.string()))) fs::remove(file, ignored);
  }
  if (!directory.empty()) fs::remove(directory, ignored);
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
        error, "cannot make a directory for sockets in " +
                   (wanted == nullptr ? std::string("/tmp") : "\"" + std::string(wanted) + "\" (TMPDIR)"));
  }
  std::string path = (parent / "qor-XXXXXX").string();
  if (::mkdtemp(path.data()) == nullptr) {
    throw std::system_error(errno, std::system_category(), "cannot make a directory for sockets, " + path);
  }
  path_ = path;
}

PrivateDirectory::~PrivateDirectory() {
  std::error_code ignored;
  // Looking into it takes a descriptor, removing it empty does not.
  if (isOurs_ && !fs::remove(path_, ignored)) fs::remove_all(path_, ignored);
}

}  // namespace qor::processes
