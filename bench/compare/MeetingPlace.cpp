#include "bench/compare/MeetingPlace.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace qor::bench {

namespace {

/// Free ports. They stay reserved until all are chosen, so that each is chosen once.
class FreePorts {
 public:
  FreePorts() = default;
  ~FreePorts() {
    for (const int held : held_) ::close(held);
  }
  FreePorts(const FreePorts&) = delete;
  FreePorts& operator=(const FreePorts&) = delete;

  std::string next() {
    const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (probe >= 0) held_.push_back(probe);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (probe < 0 || ::bind(probe, any, size) != 0 || ::getsockname(probe, any, &size) != 0) {
      throw std::system_error(errno, std::system_category(), "cannot find a free port");
    }
    return "tcp://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  }

 private:
  std::vector<int> held_;
};

}  // namespace

MeetingPlace::MeetingPlace(Transport transport, std::size_t engines) {
  std::string path = (std::filesystem::temp_directory_path() / "compare-XXXXXX").string();
  if (::mkdtemp(path.data()) == nullptr) {
    throw std::system_error(errno, std::system_category(), "cannot make the directory " + path);
  }
  directory_ = path;
  FreePorts ports;
  for (std::size_t engine = 0; engine < engines; ++engine) {
    const auto address = [&](const char* name) {
      return transport == Transport::Tcp ? ports.next()
                                         : "ipc://" + (directory_ / (std::to_string(engine) + name)).string();
    };
    ofEngines_.push_back({.request = address("request"),
                          .status = address("status"),
                          .command = address("command"),
                          .notification = address("notification")});
  }
}

MeetingPlace::~MeetingPlace() {
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

}  // namespace qor::bench
