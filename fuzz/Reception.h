#pragma once

#include <google/protobuf/stubs/logging.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "fuzz/Require.h"
#include "runtime/inproc/Network.h"
#include "runtime/tamb/CurrentLoggerWriter.h"
#include "tamb/ILoggerWriter.h"

namespace qor::fuzz {

/// Most inputs cause log lines, which are not of interest here.
class Silence : public tamb::ILoggerWriter {
 public:
  void Write(tamb::LogLevel /*level*/, const std::string& /*message*/, const std::string& /*context*/,
             const std::string& /*source*/, const std::string& /*line*/, const std::string& /*function*/,
             const std::string& /*threadId*/, const std::string& /*time*/) override {}

  static void keep(std::shared_ptr<tamb::ILoggerWriter> writer = std::make_shared<Silence>()) {
    tamb::SetCurrentLoggerWriter(std::move(writer));
    google::protobuf::SetLogHandler(nullptr);
  }
};

/// Delivers bytes to a subscriber of that name as its next message, and returns when its reception thread has
/// handled them.
inline void receiveAs(const std::string& socket, const std::string& bytes) {
  socket::inproc::deliver(socket, bytes);
  require(socket::inproc::waitUntilBlocked(socket, socket::inproc::Operation::Poll), "reception goes on");
}

/// The expected message; empty if the bytes are not one.
template <class Message>
Message understood(const std::string& bytes, std::size_t sizeBound = 65'536) {
  Message message;
  if (bytes.size() > sizeBound || !message.ParseFromString(bytes)) message.Clear();
  return message;
}

}  // namespace qor::fuzz
