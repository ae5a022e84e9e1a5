#pragma once

#include <google/protobuf/arena.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "Checks.h"
#include "Clock.h"
#include "CommandAndNotification.pb.h"
#include "qor/socket/Socket.h"
#include "tamb/IParametersCollection.h"
#include "tamb/MediaTime.h"

/// Converts between the framework's values and the messages on the wire. The functions have no state: any
/// number of threads may call them.
///
/// Five types of parameters cross the process boundary, without widening: Bool, Int64, Uint64, Double and
/// UTF8String. Writing a key of another type throws a TAMBRuntimeError that names it. Descriptions are not
/// transmitted, and keys are read grouped by type, in that order. A null pointer is written as a message
/// without fields, which is incomplete; an empty collection as a message whose `data` is present and empty.
namespace qor::multiprocess_communication::Serializers {

proto::ParametersCollectionPrototype ParametersCollectionPrototypeToProtoBuf(
    std::shared_ptr<const tamb::IParametersCollectionPrototype> prototype);

proto::ParametersCollectionInstance ParametersCollectionInstanceToProtoBuf(
    std::shared_ptr<const tamb::IParametersCollectionInstance> instance);

/// The same, into a message that is reused: its contents are dropped, its memory is kept. After an exception
/// it contains a part of the instance.
void ParametersCollectionInstanceToProtoBuf(
    const std::shared_ptr<const tamb::IParametersCollectionInstance>& instance,
    proto::ParametersCollectionInstance& message);

/// Ignores the entries of utf16StringParams. The framework refuses a key that occurs twice; its exception is
/// passed on.
std::shared_ptr<tamb::IParametersCollectionPrototype> ParametersCollectionPrototypeFromProtoBuf(
    const proto::ParametersCollectionPrototype& message);

/// Likewise. The framework refuses a value whose key is missing in the message's prototype.
std::shared_ptr<tamb::IParametersCollectionInstance> ParametersCollectionInstanceFromProtoBuf(
    const proto::ParametersCollectionInstance& message);

/// The collection that a received message carries. Null when the conversion throws std::runtime_error, which
/// is logged as `failure` with that line: a message is delivered even without its parameters.
std::shared_ptr<const tamb::IParametersCollectionInstance> ReceivedParameters(
    const proto::ParametersCollectionInstance& message, const Checks& checks, const char* failure, int line);

/// The clock of a time is not transmitted.
void MediaTimeToProtoBuf(const tamb::MediaTime& time, proto::MediaTime& message);

/// The two members of the edit rate are read exchanged: 25/1 is written, 1/25 is read. Both channels that
/// carry times rely on it.
tamb::MediaTime MediaTimeFromProtoBuf(const proto::MediaTime& message);

}  // namespace qor::multiprocess_communication::Serializers

/// What both ends of the engine control channel share.
namespace qor::multiprocess_communication {

namespace EngineStatus {

/// The status of an engine, as its process publishes it; numbered like the enumeration on the wire.
enum EngineStatus : int {
  Undefined = 0,
  Running = 1,
  Idle = 2,
  EndOfLife = 3,
};

/// The enumerator's name; "Undefined" for any other value.
std::string ToString(EngineStatus status);

}  // namespace EngineStatus

/// The front end's bound on the encoding of a reply, in bytes. The back end cuts an error text that would
/// exceed it.
inline constexpr unsigned int engineReplySizeBound = 8'192;

}  // namespace qor::multiprocess_communication

/// The two halves of a channel that carries lists of commands or notifications one way.
namespace qor::multiprocess_communication {

/// A message that is filled repeatedly and reuses its memory. One thread at a time.
///
/// A cleared message keeps the memory of the largest value that each of its elements ever held, so that
/// messages of different shapes add up: 500 lists of 64 KiB left half a gigabyte behind. Therefore a new
/// message replaces it after `maximumBytes`. Messages are allocated on an arena to make that cheap: it
/// costs 2.7 to 3.9 % of the instructions that a list with one small message takes, and 4.2 to 5.5 % without
/// an arena.
template <class Message>
class ReusedMessage {
 public:
  /// How much a message may hold over all of its uses, in bytes of their encodings: 16 messages of the
  /// largest size. This keeps its memory below 32 MiB, even if every byte takes 25 in memory, as empty
  /// strings do.
  static constexpr std::size_t maximumBytes = std::size_t{1} << 20U;

  ReusedMessage() = default;
  ~ReusedMessage() = default;
  ReusedMessage(const ReusedMessage&) = delete;
  ReusedMessage& operator=(const ReusedMessage&) = delete;

  Message& get() { return *message_; }

  /// Counts one use, which filled the message with at most this many bytes of an encoding.
  void account(std::size_t encodedBytes) { held_ += encodedBytes; }
  /// Counts a use that failed and may have filled the message with any amount.
  void accountForUnknown() { held_ = maximumBytes; }

  /// Empties the message for the next use; frees its memory once it has held `maximumBytes`.
  void clear() {
    if (held_ < maximumBytes) return message_->Clear();
    arena_.Reset();
    message_ = google::protobuf::Arena::CreateMessage<Message>(&arena_);
    held_ = 0;
  }

 private:
  google::protobuf::Arena arena_;
  Message* message_ = google::protobuf::Arena::CreateMessage<Message>(&arena_);
  std::size_t held_ = 0;
};

/// Keeps one reused message between the calls that need one. Any thread, without a lock: the call that takes
/// the message owns it. A concurrent call, on another thread or nested in the first, gets a
/// new one.
template <class Message>
class SpareMessage {
 public:
  using Reused = ReusedMessage<Message>;

  SpareMessage() = default;
  ~SpareMessage() { const std::unique_ptr<Reused> last(spare_.exchange(nullptr)); }
  SpareMessage(const SpareMessage&) = delete;
  SpareMessage& operator=(const SpareMessage&) = delete;

  /// Returns an empty message. The caller may free it instead of giving it back.
  std::unique_ptr<Reused> take() {
    std::unique_ptr<Reused> taken(spare_.exchange(nullptr));
    return taken ? std::move(taken) : std::make_unique<Reused>();
  }

  /// Clears the message and keeps it for the next call. Frees one that was given back meanwhile.
  void giveBack(std::unique_ptr<Reused> reused) {
    reused->clear();
    const std::unique_ptr<Reused> other(spare_.exchange(reused.release()));
  }

 private:
  std::atomic<Reused*> spare_ = nullptr;
};

/// The sending half: sends each batch as one message. Any number of threads, also nested: the lock is held
/// only for the send, never while an item is read.
template <class List>
class ListSender {
 public:
  /// Fills a list with `add(item, list)`, item by item, and sends it. Sends nothing when `add` throws.
  template <class Batch, class Add>
  void send(socket::Socket& socket, const Batch& batch, const Add& add) {
    // Freed when something throws: a batch that cannot be sent may be far larger than any other.
    auto list = spareList_.take();
    for (const auto& item : batch) add(item, list->get());
    whileNobodySends([&] { socket.sendProtoBuf(&list->get()); });
    // The send has cached the size.
    list->account(static_cast<std::size_t>(list->get().GetCachedSize()));
    spareList_.giveBack(std::move(list));
  }

  /// Calls `call` between two sends.
  template <class Call>
  void whileNobodySends(const Call& call) {
    const Lock lock(mutex_);
    call();
  }

 private:
  Mutex mutex_;  ///< held while the socket sends or binds
  SpareMessage<List> spareList_;
};

/// The receiving half: how a reception thread uses its socket. That thread only.
template <class List>
class ListReceiver {
 public:
  explicit ListReceiver(socket::Socket& socket) : socket_(socket) {}

  /// Waits at most 100 ms for a message. Returns the result of Socket::poll.
  int poll(std::string& errorText) { return socket_.poll(pollMilliseconds, errorText); }

  /// Receives a message. An unreadable list is left empty. So is a list whose receive throws, which may have
  /// filled a part of it.
  void receive() {
    try {
      const bool isComplete = socket_.receiveProtoBuf(&list_.get(), sizeBound) == 0;
      isComplete ? list_.account(sizeBound) : list_.accountForUnknown();
    } catch (...) {
      list_.accountForUnknown();
      list_.clear();
      throw;
    }
  }

  /// Calls `receive()`, which polls and receives, then `handle(list)` with the received list, which may be
  /// empty, until `stop` is set or `receive()` returns false.
  template <class Receive, class Handle>
  void run(const std::atomic<bool>& stop, const Receive& receive, const Handle& handle) {
    while (!stop && receive()) {
      handle(std::as_const(list_.get()));
      list_.clear();
    }
  }

 private:
  static constexpr unsigned int pollMilliseconds = 100;
  static constexpr unsigned int sizeBound = 65'536;

  socket::Socket& socket_;
  ReusedMessage<List> list_;
};

}  // namespace qor::multiprocess_communication
