#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "runtime/processes/ChildProcess.h"
#include "runtime/processes/SocketFiles.h"

namespace qor::programs {

/// A submission service used by this process alone. It ends with this object, or with this process, however
/// that ends.
class PrivateService {
 public:
  /// Starts the service; its engine registry begins with these folders. Throws std::runtime_error, one
  /// readable line, when the service is not ready within 10 s.
  explicit PrivateService(const std::vector<std::filesystem::path>& engineFolders);
  /// Stops the service; waits at most 2 s for its exit.
  ~PrivateService();
  PrivateService(const PrivateService&) = delete;
  PrivateService& operator=(const PrivateService&) = delete;

  const std::string& endpoint() const { return endpoint_; }

 private:
  const processes::PrivateDirectory directory_;
  const std::string endpoint_;
  processes::ChildProcess process_;
};

}  // namespace qor::programs
