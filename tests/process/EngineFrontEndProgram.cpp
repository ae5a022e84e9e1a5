// A host process that controls an engine in another process: executes each line of the standard input, and
// prints the result of each call, "NAME returned after MS" or "NAME threw after MS: TEXT". Each call runs on
// its own thread; the test decides which of them overlap. Log records go to the standard error stream.
//
//   engine_front_end_peer
//
//   configure REQUEST_ENDPOINT STATUS_ENDPOINT
//                        configures the front end; a new one, if there is none
//   run, ping MS, request_stop, wait_for_stop MS
//   destroy              destroys the front end
//   quit                 ends the program, and the front end first

#include <memory>
#include <sstream>
#include <string>

#include "TcpEngineFrontEnd.h"
#include "tests/process/DrivenProgram.h"

namespace {

using qor::multiprocess_communication::TcpEngineFrontEnd;

class Host {
 public:
  void obey(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    words >> command;
    if (command == "configure") {
      std::string requestEndpoint;
      std::string statusEndpoint;
      words >> requestEndpoint >> statusEndpoint;
      if (!frontEnd_) frontEnd_ = std::make_unique<TcpEngineFrontEnd>();
      program_.start(command, [this, requestEndpoint, statusEndpoint] {
        frontEnd_->SetInitConfig(TcpEngineFrontEnd::GenerateConfig(requestEndpoint, statusEndpoint));
      });
      return;
    }
    unsigned int milliseconds = 0;
    words >> milliseconds;
    if (command == "run") program_.start(command, [this] { frontEnd_->Run(); });
    if (command == "ping") program_.start(command, [this, milliseconds] { frontEnd_->Ping(milliseconds); });
    if (command == "request_stop") program_.start(command, [this] { frontEnd_->RequestStop(); });
    if (command == "wait_for_stop") {
      program_.start(command, [this, milliseconds] { frontEnd_->WaitForStop(milliseconds); });
    }
    if (command == "destroy") program_.start(command, [this] { frontEnd_.reset(); });
  }

 private:
  std::unique_ptr<TcpEngineFrontEnd> frontEnd_;
  qor::test::DrivenProgram program_;  ///< destroyed first, and with it the pending calls
};

}  // namespace

int main() {
  try {
    Host host;
    for (std::string line; qor::test::DrivenProgram::nextLine(line);) host.obey(line);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "engine_front_end_peer: " << error.what() << '\n';
    return 1;
  }
}
