// One message socket, controlled by a test: executes each line of the standard input, and answers it with one
// line on the standard output. Diagnostics go to the standard error stream.
//
//   wire_peer NAME CLOSE_POLICY
//
//   reserve ENDPOINT            the endpoint, whose port is reserved from now on
//   open ROLE ENDPOINT MS       ok
//   send TYPE HEX               ok
//   send-numbered FIRST COUNT WIDTH
//                               ok, when COUNT replies have been sent whose texts are numbers that count up
//                               from FIRST, with zeros ahead of them up to WIDTH digits
//   poll MS                     RESULT TEXT
//   receive TYPE BOUND          RESULT HEX, which is the message encoded again
//   state                       open TEXT or closed TEXT, with the socket's description
//   close                       ok
//   quit                        ok, the last answer
//
// TYPE is a message's name without its package. If an operation throws, the answer is "failed TEXT", or
// "terminated TEXT" if the messaging context is being shut down.

#include <google/protobuf/message.h>

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "CommandAndNotification.pb.h"
#include "TcpEngine.pb.h"
#include "qor/proto/ApiService.pb.h"
#include "qor/socket/Socket.h"
#include "tests/wire/Hexadecimal.h"

namespace {

namespace proto = qor::multiprocess_communication::proto;
namespace service = qor::proto::api_service;
using google::protobuf::Message;
using qor::socket::SocketEndpoint;

template <class Type>
std::unique_ptr<Message> make() {
  return std::make_unique<Type>();
}

/// An empty message of the requested type.
std::unique_ptr<Message> messageOf(const std::string& type) {
  static const std::map<std::string, std::unique_ptr<Message> (*)()> makers{
      {"CommandMessageList", make<proto::CommandMessageList>},
      {"NotificationMessageList", make<proto::NotificationMessageList>},
      {"EngineFrontEndRequest", make<proto::EngineFrontEndRequest>},
      {"EngineBackEndReply", make<proto::EngineBackEndReply>},
      {"EngineStatus", make<proto::EngineStatus>},
      {"ApiToServiceRequest", make<service::ApiToServiceRequest>},
      {"ServiceToApiReply", make<service::ServiceToApiReply>},
  };
  return makers.at(type)();
}

qor::socket::Protocol::Protocol roleOf(const std::string& name) {
  static const std::map<std::string, qor::socket::Protocol::Protocol> roles{
      {"Publisher", qor::socket::Protocol::Publisher},
      {"Subscriber", qor::socket::Protocol::Subscriber},
      {"Replier", qor::socket::Protocol::Replier},
      {"Requester", qor::socket::Protocol::Requester},
  };
  return roles.at(name);
}

/// The next word of a command; a default value when there is none.
template <class Type>
Type next(std::istream& words) {
  Type word{};
  words >> word;
  return word;
}

class WirePeer {
 public:
  WirePeer(const std::string& name, qor::socket::ClosePolicy::ClosePolicy policy) : socket_(name, policy) {}

  /// The answer to one line.
  std::string obey(const std::string& line) {
    static const std::map<std::string, std::string (WirePeer::*)(std::istream&)> commands{
        {"reserve", &WirePeer::reserve}, {"open", &WirePeer::open},
        {"send", &WirePeer::send},       {"send-numbered", &WirePeer::sendNumbered},
        {"poll", &WirePeer::poll},       {"receive", &WirePeer::receive},
        {"state", &WirePeer::state},     {"close", &WirePeer::close},
    };
    std::istringstream words(line);
    const auto command = commands.at(next<std::string>(words));
    try {
      return (this->*command)(words);
    } catch (const qor::socket::ZmqContextTerminationException& termination) {
      return std::string("terminated ") + termination.what();
    } catch (const std::runtime_error& error) {
      return std::string("failed ") + error.what();
    }
  }

 private:
  std::string reserve(std::istream& words) {
    reserved_ = SocketEndpoint::FromString(next<std::string>(words)).withReservedPort();
    return reserved_->toString(qor::socket::Protocol::Plain);
  }

  std::string open(std::istream& words) {
    const auto role = roleOf(next<std::string>(words));
    auto endpoint = SocketEndpoint::FromString(next<std::string>(words));
    if (reserved_ && *reserved_ == endpoint) endpoint = *reserved_;
    socket_.createAndConnect(role, endpoint, next<unsigned int>(words));
    return "ok";
  }

  std::string send(std::istream& words) {
    const auto message = messageOf(next<std::string>(words));
    // The socket has to check whether a message is complete.
    if (!message->ParsePartialFromString(qor::test::fromHex(next<std::string>(words)))) {
      throw std::runtime_error("the bytes are no message");
    }
    socket_.sendProtoBuf(message.get());
    return "ok";
  }

  std::string sendNumbered(std::istream& words) {
    const auto first = next<unsigned int>(words);
    const auto count = next<unsigned int>(words);
    const auto width = next<std::size_t>(words);
    proto::EngineBackEndReply reply;
    reply.set_type(proto::EngineBackEndReply::Success);
    for (unsigned int number = first; number < first + count; ++number) {
      std::string text = std::to_string(number);
      text.insert(0, width - std::min(width, text.size()), '0');
      reply.set_replystring(std::move(text));
      socket_.sendProtoBuf(&reply);
    }
    return "ok";
  }

  std::string poll(std::istream& words) {
    std::string errorText;
    const int result = socket_.poll(next<unsigned int>(words), errorText);
    return std::to_string(result) + ' ' + errorText;
  }

  std::string receive(std::istream& words) {
    const auto message = messageOf(next<std::string>(words));
    const int result = socket_.receiveProtoBuf(message.get(), next<unsigned int>(words));
    return std::to_string(result) + ' ' + qor::test::toHex(message->SerializePartialAsString());
  }

  std::string state(std::istream& /*words*/) {
    return (socket_.isOpen() ? "open " : "closed ") + socket_.debugString();
  }

  std::string close(std::istream& /*words*/) {
    socket_.close();
    return "ok";
  }

  qor::socket::Socket socket_;
  std::optional<SocketEndpoint> reserved_;
};

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount != 3) {
    std::cerr << "usage: wire_peer NAME CLOSE_POLICY\n";
    return 2;
  }
  try {
    {
      const int policy = std::stoi(arguments[2]);
      WirePeer peer(arguments[1], static_cast<qor::socket::ClosePolicy::ClosePolicy>(policy));
      for (std::string line; std::getline(std::cin, line) && line != "quit";) {
        std::cout << peer.obey(line) << std::endl;
      }
    }
    std::cout << "ok" << std::endl;
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "wire_peer: " << error.what() << '\n';
    return 1;
  }
}
