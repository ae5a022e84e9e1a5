#pragma once

#include <string>

#include "runtime/base/FileDescriptor.h"

namespace qor::socket {

/// A non-blocking descriptor that listens on a socket file, or on a name without a file when the path starts
/// with '@'. A file that its owner left behind when it died is replaced; one that is listened on, and
/// anything that is no socket, is left alone. Throws AddressInUse, or another std::runtime_error, that names
/// the path and the reason.
base::FileDescriptor listenOnLocal(const std::string& path);

}  // namespace qor::socket
