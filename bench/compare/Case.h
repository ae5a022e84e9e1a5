#pragma once

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

namespace qor::bench {

/// The kind of measurement. Round trips run one at a time; one-way commands and notifications fill a window.
enum class Measure { ControlRoundTrip, CommandRoundTrip, Commands, Notifications };

/// The carrier of the messages. The alternatives on libzmq and gRPC also start from framework objects and
/// create framework objects.
enum class Library {
  Ours,
  Bare,                ///< libzmq and protobuf, no checks except for errors
  BareGuarded,         ///< the same; requests survive the death of a peer, as ours do
  BareValues,          ///< the same; without framework objects for parameters and received messages
  Grpc,                ///< unary calls for control, else one bidirectional stream
  GrpcBesideStream,    ///< unary calls for control while a stream is open
  GrpcBuffered,        ///< the same; messages with successors may wait for them
  GrpcClient,          ///< a stream of commands only
  GrpcClientBuffered,  ///< the same; messages with successors may wait for them
  InProcess,           ///< the framework without a process boundary
};

enum class Transport { Ipc, Tcp };

/// The cores of the two processes.
enum class Cores {
  One,   ///< both on the first core
  Each,  ///< each on its own core
  Free,  ///< chosen by the scheduler
};

NLOHMANN_JSON_SERIALIZE_ENUM(Measure, {{Measure::ControlRoundTrip, "control round trip"},
                                       {Measure::CommandRoundTrip, "command to notification round trip"},
                                       {Measure::Commands, "commands"},
                                       {Measure::Notifications, "notifications"}})
NLOHMANN_JSON_SERIALIZE_ENUM(Library, {{Library::Ours, "ours"},
                                       {Library::Bare, "bare libzmq"},
                                       {Library::BareGuarded, "bare libzmq, guarded"},
                                       {Library::BareValues, "bare libzmq, plain values"},
                                       {Library::Grpc, "gRPC"},
                                       {Library::GrpcBesideStream, "gRPC beside a stream"},
                                       {Library::GrpcBuffered, "gRPC, buffered"},
                                       {Library::GrpcClient, "gRPC client stream"},
                                       {Library::GrpcClientBuffered, "gRPC client stream, buffered"},
                                       {Library::InProcess, "in-process"}})
NLOHMANN_JSON_SERIALIZE_ENUM(Transport, {{Transport::Ipc, "ipc"}, {Transport::Tcp, "tcp"}})
NLOHMANN_JSON_SERIALIZE_ENUM(Cores,
                             {{Cores::One, "one core"}, {Cores::Each, "a core each"}, {Cores::Free, "free"}})

/// One run. Both processes receive the same.
struct Case {
  Measure measure = Measure::Commands;
  Library library = Library::Ours;
  Transport transport = Transport::Ipc;
  Cores cores = Cores::Free;
  bool withParameters = false;
  std::size_t perList = 1;   ///< messages in a list
  std::size_t messages = 0;  ///< messages or round trips to measure: whole windows for each turn
  std::size_t turns = 1;     ///< number of parts, which alternate with those of other libraries
  std::size_t engines = 1;   ///< in one engine process; they take the lists in turn

  static constexpr std::size_t creditsPerWindow = 4;

  bool isRoundTrip() const {
    return measure == Measure::ControlRoundTrip || measure == Measure::CommandRoundTrip;
  }
  /// Message ids count up to this and start again. A multiple of the list's size.
  std::size_t ids() const { return 10'000 / perList * perList; }
  /// The number of messages in transit: enough to keep both sides busy, less than any queue's capacity.
  std::size_t window() const {
    if (isRoundTrip()) return 1;
    const std::size_t lists = perList == 1 ? 1'000 : std::clamp<std::size_t>(2'000 / perList, 20, 100);
    return engines * lists / creditsPerWindow * creditsPerWindow * perList;
  }
  std::size_t perTurn() const { return messages / turns; }
  /// The receiver gives the sender credit for this many messages at once.
  std::size_t perCredit() const { return isRoundTrip() ? 1 : window() / creditsPerWindow; }
  /// The number of messages sent before the measurement: connections, queues and reused messages grow to
  /// their size.
  std::size_t warmUp() const { return isRoundTrip() ? 200 : (engines == 1 ? 10 : 2) * window(); }
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Case, measure, library, transport, cores, withParameters, perList,
                                   messages, turns, engines)

/// The result of one run.
struct Result {
  double perSecond = 0;           ///< messages or round trips
  double p50 = 0;                 ///< of the round trips, in microseconds
  double p99 = 0;                 ///< of the round trips, in microseconds
  double hostMicroseconds = 0;    ///< processor time of the host process per message
  double engineMicroseconds = 0;  ///< processor time of the engine process per message
  std::size_t wrong = 0;          ///< messages with an unexpected id or without parameters
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Result, perSecond, p50, p99, hostMicroseconds, engineMicroseconds, wrong)

}  // namespace qor::bench
