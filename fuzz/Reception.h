#pragma once

#include <google/protobuf/stubs/logging.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "runtime/memory/Network.h"
#include "runtime/tamb/CurrentLoggerWriter.h"
#include "tamb/ILoggerWriter.h"

namespace qor::fuzz {

/// Ends the process, for the fuzzer to keep the input.
inline void require(bool condition, const char* expectation) {
  if (condition) return;
  std::fprintf(stderr, "not so: %s\n", expectation);
  std::abort();
}

/// Most inputs are worth a log line that nobody reads.
class Silence : public tamb::ILoggerWriter {
 public:
  void Write(tamb::LogLevel /*level*/, const std::string& /*message*/, const std::string& /*context*/,
             const std::string& /*source*/, const std::string& /*line*/, const std::string& /*function*/,
             const std::string& /*threadId*/, const std::string& /*time*/) override {}

  static void keep() {
    tamb::SetCurrentLoggerWriter(std::make_shared<Silence>());
    google::protobuf::SetLogHandler(nullptr);
  }
};

/// Gives bytes to a subscriber of that name as its next message, and returns when its reception thread has
/// done with them.
inline void receiveAs(const std::string& socket, const std::string& bytes) {
  socket::memory::deliver(socket, bytes);
  require(socket::memory::waitUntilBlocked(socket, socket::memory::Operation::Poll), "reception goes on");
}

/// The list as it should have been understood; empty when the bytes are none.
template <class List>
List understood(const std::string& bytes) {
  List list;
  if (bytes.size() > 65'536 || !list.ParseFromString(bytes)) list.Clear();
  return list;
}

}  // namespace qor::fuzz
