#pragma once

#include <string>

#include "runtime/base/FileDescriptor.h"

namespace qor::socket {

/// A non-blocking descriptor that listens on a socket file, or on a name without a file if the path starts
/// with '@'. Replaces a file that its owner left behind when it died, but neither one with a listener nor
/// anything that is not a socket. Throws AddressInUse or another std::runtime_error, with the path and the
/// reason.
base::FileDescriptor listenOnLocal(const std::string& path);

}  // namespace qor::socket
