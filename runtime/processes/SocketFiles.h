#pragma once

#include <filesystem>
#include <initializer_list>

#include "qor/socket/SocketEndpoint.h"

namespace qor::processes {

/// Who has bound the socket files in a directory.
enum class BoundBy { Us, Anybody };

/// Removes the endpoints' socket files and then the directory, if one is given and it is empty: a killed
/// process leaves them behind. Files with a listener stay, whatever the spelling of their paths, except in a
/// directory of ours, where all are removed.
void removeSocketFiles(std::initializer_list<socket::SocketEndpoint> endpoints,
                       const std::filesystem::path& directory, BoundBy boundBy = BoundBy::Us);

/// Throws std::runtime_error, one readable line, when the socket file of one of the endpoints has a listener.
void requireNobodyListens(std::initializer_list<socket::SocketEndpoint> endpoints);

/// Removes a directory of sockets with its content; false, removing nothing, while a process has one bound.
bool removeIfUnused(const std::filesystem::path& directory);

/// A new directory that no other user can enter, below the directory for temporary files. The destructor
/// removes it with its content, unless it was released.
class PrivateDirectory {
 public:
  /// Throws std::system_error.
  PrivateDirectory();
  ~PrivateDirectory();
  PrivateDirectory(const PrivateDirectory&) = delete;
  PrivateDirectory& operator=(const PrivateDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }
  void release() { isOurs_ = false; }

 private:
  std::filesystem::path path_;
  bool isOurs_ = true;
};

}  // namespace qor::processes
