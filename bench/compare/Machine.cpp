#include "bench/compare/Machine.h"

#include <fmt/format.h>
#include <google/protobuf/stubs/common.h>
#include <grpcpp/grpcpp.h>
#include <link.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <zmq.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <string>

namespace qor::bench {

namespace {

std::string firstAfter(const char* path, const std::string& label) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(label)) return line.substr(line.find(':') + 2);
  }
  return "unknown";
}

/// Identifies the build by the contents of this program and of the libraries built with it.
std::string build() {
  std::size_t hash = 0;
  const auto add = [](dl_phdr_info* loaded, std::size_t, void* sum) {
    const std::string name = *loaded->dlpi_name == '\0' ? "/proc/self/exe" : loaded->dlpi_name;
    if (name.starts_with("/usr/") || name.starts_with("/lib")) return 0;
    std::ifstream file(name, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    *static_cast<std::size_t*>(sum) ^= std::hash<std::string>{}(content);
    return 0;
  };
  ::dl_iterate_phdr(add, &hash);
  return fmt::format("{:016x}", hash);
}

}  // namespace

nlohmann::json machine() {
  utsname system{};
  ::uname(&system);
  int major = 0;
  int minor = 0;
  int patch = 0;
  ::zmq_version(&major, &minor, &patch);
  return {{"processor", firstAfter("/proc/cpuinfo", "model name")},
          {"cores", ::get_nprocs()},
          {"system", std::string(system.sysname) + ' ' + system.release},
          {"compiler", "GCC " __VERSION__},
          {"build", build()},
          {"libzmq", std::to_string(major) + '.' + std::to_string(minor) + '.' + std::to_string(patch)},
          {"protobuf", google::protobuf::internal::VersionString(GOOGLE_PROTOBUF_VERSION)},
          {"gRPC", grpc::Version()}};
}

}  // namespace qor::bench
