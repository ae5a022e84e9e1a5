#pragma once

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

namespace qor::bench {

/// What is measured. Round trips are one at a time; commands and notifications one-way are as many as fit
/// into a window.
enum class Measure { ControlRoundTrip, CommandRoundTrip, Commands, Notifications };

/// What carries the messages. What a user would write on libzmq or gRPC is built from framework objects too,
/// and ends in framework objects.
enum class Library {
  Ours,
  Bare,                ///< libzmq and protobuf, nothing checked but errors
  BareGuarded,         ///< the same; requests get along with a peer that dies, as ours do
  BareValues,          ///< the same; parameters are never objects of the framework, nor is what arrives
  Grpc,                ///< unary calls alone for control, else one bidirectional stream
  GrpcBesideStream,    ///< unary calls for control while a stream is open
  GrpcBuffered,        ///< the same; messages that more will follow may wait for them
  GrpcClient,          ///< a stream of commands only
  GrpcClientBuffered,  ///< the same; messages that more will follow may wait for them
  InProcess,           ///< the framework without a process boundary
};

enum class Transport { Ipc, Tcp };

/// Where the two processes may run.
enum class Cores {
  One,   ///< both on the first core
  Each,  ///< each on a core of its own
  Free,  ///< wherever the scheduler puts their threads
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

/// One run. Both processes are given the same.
struct Case {
  Measure measure = Measure::Commands;
  Library library = Library::Ours;
  Transport transport = Transport::Ipc;
  Cores cores = Cores::Free;
  bool withParameters = false;
  std::size_t perList = 1;   ///< messages in a list
  std::size_t messages = 0;  ///< or round trips, that are measured: whole windows for each turn
  std::size_t turns = 1;     ///< in which they are measured, alternately with the other libraries' ones
  std::size_t engines = 1;   ///< in one engine process; the lists go round

  static constexpr std::size_t creditsPerWindow = 4;

  bool isRoundTrip() const {
    return measure == Measure::ControlRoundTrip || measure == Measure::CommandRoundTrip;
  }
  /// Ids of messages count up to this and begin again. A multiple of the list's size.
  std::size_t ids() const { return 10'000 / perList * perList; }
  /// How many messages may be under way: enough to keep both sides busy, less than any queue holds.
  std::size_t window() const {
    if (isRoundTrip()) return 1;
    const std::size_t lists = perList == 1 ? 1'000 : std::clamp<std::size_t>(2'000 / perList, 20, 100);
    return engines * lists / creditsPerWindow * creditsPerWindow * perList;
  }
  std::size_t perTurn() const { return messages / turns; }
  /// The receiver tells the sender of so many messages at once.
  std::size_t perCredit() const { return isRoundTrip() ? 1 : window() / creditsPerWindow; }
  /// Sent ahead of what is measured: connections, queues and reused messages grow to their size.
  std::size_t warmUp() const { return isRoundTrip() ? 200 : (engines == 1 ? 10 : 2) * window(); }
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Case, measure, library, transport, cores, withParameters, perList,
                                   messages, turns, engines)

/// What one run came to.
struct Result {
  double perSecond = 0;           ///< messages or round trips
  double p50 = 0;                 ///< of the round trips, in microseconds
  double p99 = 0;                 ///< likewise
  double hostMicroseconds = 0;    ///< processor time of the host's process for each message
  double engineMicroseconds = 0;  ///< likewise of the engine's
  std::size_t wrong = 0;          ///< messages that bore another id than the next one, or lacked parameters
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Result, perSecond, p50, p99, hostMicroseconds, engineMicroseconds, wrong)

}  // namespace qor::bench
