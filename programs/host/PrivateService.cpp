#include "programs/host/PrivateService.h"

#include <unistd.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace qor::programs {

using processes::siblingProgram;

namespace {

constexpr std::chrono::seconds timeToBeReady{10};
constexpr std::chrono::seconds timeToEnd{2};

std::vector<std::string> argumentsFor(const std::string& endpoint, const std::filesystem::path& directory,
                                      const std::vector<std::filesystem::path>& engineFolders) {
  std::vector<std::string> arguments{"--endpoint",
                                     endpoint,
                                     "--directory",
                                     directory.string(),
                                     "--end-with-parent",
                                     std::to_string(::getpid()),
                                     "--quiet"};
  for (const auto& folder : engineFolders) arguments.push_back("--engines=" + folder.string());
  return arguments;
}

}  // namespace

PrivateService::PrivateService(const std::vector<std::filesystem::path>& engineFolders)
    : endpoint_("ipc://" + (directory_.path() / "service").string()),
      process_(siblingProgram("qor-engine-service"),
               argumentsFor(endpoint_, directory_.path(), engineFolders), "") {
  const auto line = process_.readLine(timeToBeReady);
  if (nlohmann::json::parse(line.value_or(""), nullptr, false).is_object()) return;
  const auto status = process_.reap();
  process_.end(timeToEnd);
  throw std::runtime_error(
      "the private submission service did not start: " +
      (status ? "it ended with " + processes::describeStatus(*status) + "; its own message is above"
              : "it was not ready within " + std::to_string(timeToBeReady.count()) + " s"));
}

PrivateService::~PrivateService() { process_.end(timeToEnd); }

}  // namespace qor::programs
