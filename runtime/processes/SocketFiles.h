#pragma once

#include <filesystem>
#include <initializer_list>

#include "qor/socket/SocketEndpoint.h"

namespace qor::processes {

/// Removes the socket files of those endpoints that have one, and then the directory, when one is given and
/// it is empty: what a process that was killed could not remove itself.
void removeSocketFiles(std::initializer_list<socket::SocketEndpoint> endpoints,
                       const std::filesystem::path& directory);

/// A new directory that no other user can enter, below the directory for temporary files. Throws
/// std::system_error.
std::filesystem::path makePrivateDirectory();

}  // namespace qor::processes
