#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "runtime/processes/ChildProcess.h"
#include "runtime/processes/SocketFiles.h"

namespace qor::programs {

/// A submission service of this process alone. It ends with this object, and with this process however that
/// ends.
class PrivateService {
 public:
  /// Starts it; its registry of engines begins with these folders. Throws std::runtime_error, one readable
  /// line, when it is not there within 10 s.
  explicit PrivateService(const std::vector<std::filesystem::path>& engineFolders);
  /// Waits at most 2 s for its end.
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
