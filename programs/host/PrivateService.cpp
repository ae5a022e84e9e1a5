#include "programs/host/PrivateService.h"

#include <unistd.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <system_error>

#include "runtime/processes/SocketFiles.h"

namespace qor::programs {

using processes::makePrivateDirectory;
using processes::siblingProgram;

namespace {

constexpr std::chrono::seconds timeToBeReady{5};
constexpr std::chrono::seconds timeToEnd{2};

}  // namespace

PrivateService::PrivateService()
    : directory_(makePrivateDirectory()),
      endpoint_("ipc://" + (directory_ / "service").string()),
      process_(siblingProgram("qor-engine-service"),
               {"--endpoint", endpoint_, "--directory", directory_.string(), "--end-with-parent",
                std::to_string(::getpid()), "--quiet"},
               "") {
  const auto line = process_.readLine(timeToBeReady);
  if (nlohmann::json::parse(line.value_or(""), nullptr, false).is_object()) return;
  process_.end(timeToEnd);
  throw std::runtime_error("the private submission service did not start: its own message is above");
}

PrivateService::~PrivateService() {
  process_.end(timeToEnd);
  // Its own work, unless it was killed.
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

}  // namespace qor::programs
