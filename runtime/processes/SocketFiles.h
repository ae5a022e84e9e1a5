#pragma once

#include <filesystem>
#include <initializer_list>

#include "qor/socket/SocketEndpoint.h"

namespace qor::processes {

/// Who has bound the socket files in a directory.
enum class BoundBy { Us, Anybody };

/// Removes the socket files of those endpoints that have one, and then the directory, when one is given and
/// it is empty: what a process that was killed could not remove itself. Files that somebody listens on stay,
/// however their paths are written; but those in the directory go in any case when it is ours.
void removeSocketFiles(std::initializer_list<socket::SocketEndpoint> endpoints,
                       const std::filesystem::path& directory, BoundBy boundBy = BoundBy::Us);

/// Throws std::runtime_error, one readable line, when somebody listens on the socket file of one of those
/// endpoints that have one.
void requireNobodyListens(std::initializer_list<socket::SocketEndpoint> endpoints);

/// Removes a directory of sockets with all that is in it, unless somebody has one of them bound; false then.
bool removeIfUnused(const std::filesystem::path& directory);

/// A new directory that no other user can enter, below the directory for temporary files. It is removed, with
/// all that is in it, with this object, unless it was handed over to somebody else by then.
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
