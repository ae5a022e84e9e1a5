#include <benchmark/benchmark.h>
#include <zmq.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

#include "CommandAndNotification.pb.h"
#include "TcpEngine.pb.h"
#include "bench/BareSockets.h"
#include "bench/PrivateEndpoint.h"
#include "qor/socket/Socket.h"

namespace qor::bench {
namespace {

namespace proto = multiprocess_communication::proto;
using socket::Socket;
using socket::ClosePolicy::Patient;

constexpr unsigned int sizeBound = 65'536;
constexpr unsigned int pollMilliseconds = 100;
/// The number of lists in transit: enough to keep both sides busy, less than any queue's capacity.
constexpr int listsInFlight = 1'000;

/// Typical commands: ids of 36 characters, five arguments, one of each supported type.
proto::CommandMessageList typicalCommands(int count) {
  proto::CommandMessageList list;
  for (int i = 0; i < count; ++i) {
    proto::CommandMessage& command = *list.add_messages();
    command.mutable_mediatime()->mutable_editrate()->set_numerator(25);
    command.mutable_mediatime()->mutable_editrate()->set_denominator(1);
    command.mutable_mediatime()->set_timenumber(1'000 + i);
    command.set_commandname("FilterCommand");
    command.set_commandid(static_cast<std::uint64_t>(i));
    command.set_workflowmanagerid("7b2d1c80-5f0e-4f7e-9a53-0c8f6f3f1a11");
    command.set_engineid(7);
    command.set_stepid("0f0b6f1e-93a4-4d1c-8f2b-54c1a8f2d9e0");
    for (auto* data : {command.mutable_commandargs()->mutable_prototype()->mutable_data(),
                       command.mutable_commandargs()->mutable_data()}) {
      auto& flag = *data->add_boolparams();
      flag.set_key("enabled");
      flag.set_value(true);
      auto& offset = *data->add_int64params();
      offset.set_key("offset");
      offset.set_value(-12);
      auto& frames = *data->add_uint64params();
      frames.set_key("frames");
      frames.set_value(250);
      auto& gain = *data->add_doubleparams();
      gain.set_key("gain");
      gain.set_value(0.5);
      auto& target = *data->add_utf8stringparams();
      target.set_key("target");
      target.set_value("volume");
    }
  }
  return list;
}

proto::EngineFrontEndRequest ping() {
  proto::EngineFrontEndRequest request;
  request.set_type(proto::EngineFrontEndRequest::Ping);
  request.set_timeoutmilliseconds(1'000);
  return request;
}

proto::EngineBackEndReply success() {
  proto::EngineBackEndReply reply;
  reply.set_type(proto::EngineBackEndReply::Success);
  reply.set_replystring("");
  reply.set_errorstring("");
  return reply;
}

/// Counts batches on the receiving side; the sending side waits for them.
class BatchCounter {
 public:
  void countOne() {
    if (++lists_ % listsInFlight != 0) return;
    ++batches_;
    batches_.notify_one();
  }
  void waitFor(int batches) {
    for (int seen = batches_; seen < batches; seen = batches_) batches_.wait(seen);
  }

 private:
  int lists_ = 0;  ///< used by the receiving thread only
  std::atomic<int> batches_{0};
};

/// One iteration sends a batch of lists to the other thread. An empty list ends that thread.
template <class Send, class Receive>
void publish(benchmark::State& state, const Send& send, const Receive& receive) {
  BatchCounter counter;
  std::thread receiver([&] {
    proto::CommandMessageList list;
    for (receive(list); list.messages_size() != 0; receive(list)) counter.countOne();
  });
  const auto commandsPerList = static_cast<int>(state.range(0));
  proto::CommandMessageList list = typicalCommands(commandsPerList);
  int batches = 0;
  for ([[maybe_unused]] auto _ : state) {
    for (int i = 0; i < listsInFlight; ++i) send(list);
    counter.waitFor(++batches);
  }
  list.Clear();
  send(list);
  receiver.join();
  state.SetItemsProcessed(static_cast<std::int64_t>(batches) * listsInFlight * commandsPerList);
}

void publishOurs(benchmark::State& state) {
  const PrivateEndpoint endpoint;
  Socket publisher("BenchmarkPublisher", Patient);
  Socket subscriber("BenchmarkSubscriber", Patient);
  publisher.createAndConnect(socket::Protocol::Publisher, endpoint.endpoint(), 0);
  subscriber.createAndConnect(socket::Protocol::Subscriber, endpoint.endpoint(), 0);
  std::string errorText;
  publish(
      state, [&](proto::CommandMessageList& list) { publisher.sendProtoBuf(&list); },
      [&](proto::CommandMessageList& list) {
        while (subscriber.poll(pollMilliseconds, errorText) != 0) {
        }
        subscriber.receiveProtoBuf(&list, sizeBound);
      });
}

void publishBare(benchmark::State& state) {
  const PrivateEndpoint endpoint;
  BareSocket publisher(ZMQ_XPUB, endpoint.text(), true);
  BareSocket subscriber(ZMQ_SUB, endpoint.text(), false);
  publisher.waitForSubscriber();
  publish(
      state, [&](const proto::CommandMessageList& list) { publisher.send(list); },
      [&](proto::CommandMessageList& list) { subscriber.receive(list); });
}

/// One iteration is a request and its reply. A FrontEndTermination request ends the other thread.
template <class Exchange, class Serve>
void roundTrip(benchmark::State& state, const Exchange& exchange, const Serve& serve) {
  std::thread replier([&] {
    proto::EngineFrontEndRequest request;
    proto::EngineBackEndReply reply = success();
    do serve(request, reply);
    while (request.type() != proto::EngineFrontEndRequest::FrontEndTermination);
  });
  proto::EngineFrontEndRequest request = ping();
  proto::EngineBackEndReply reply;
  for ([[maybe_unused]] auto _ : state) exchange(request, reply);
  request.set_type(proto::EngineFrontEndRequest::FrontEndTermination);
  exchange(request, reply);
  replier.join();
  state.SetItemsProcessed(state.iterations());
}

void roundTripOurs(benchmark::State& state) {
  const PrivateEndpoint endpoint;
  Socket replier("BenchmarkReplier", Patient);
  Socket requester("BenchmarkRequester", Patient);
  replier.createAndConnect(socket::Protocol::Replier, endpoint.endpoint(), 0);
  requester.createAndConnect(socket::Protocol::Requester, endpoint.endpoint(), 0);
  std::string errorText;
  roundTrip(
      state,
      [&](proto::EngineFrontEndRequest& request, proto::EngineBackEndReply& reply) {
        requester.sendProtoBuf(&request);
        requester.receiveProtoBuf(&reply, sizeBound);
      },
      [&](proto::EngineFrontEndRequest& request, proto::EngineBackEndReply& reply) {
        while (replier.poll(pollMilliseconds, errorText) != 0) {
        }
        replier.receiveProtoBuf(&request, sizeBound);
        replier.sendProtoBuf(&reply);
      });
}

void roundTripBare(benchmark::State& state, Guarantees guarantees) {
  const PrivateEndpoint endpoint;
  BareSocket replier(ZMQ_REP, endpoint.text(), true);
  BareSocket requester(ZMQ_REQ, endpoint.text(), false, guarantees);
  roundTrip(
      state,
      [&](const proto::EngineFrontEndRequest& request, proto::EngineBackEndReply& reply) {
        requester.send(request);
        requester.receive(reply);
      },
      [&](proto::EngineFrontEndRequest& request, const proto::EngineBackEndReply& reply) {
        replier.receive(request);
        replier.send(reply);
      });
}

BENCHMARK(roundTripOurs)->Name("RoundTrip/ours")->UseRealTime();
BENCHMARK_CAPTURE(roundTripBare, plain, Guarantees::None)->Name("RoundTrip/bare")->UseRealTime();
BENCHMARK_CAPTURE(roundTripBare, guarded, Guarantees::AsOursGives)->Name("RoundTrip/guarded")->UseRealTime();
BENCHMARK(publishOurs)->Name("CommandLists/ours")->Arg(1)->Arg(100)->UseRealTime();
BENCHMARK(publishBare)->Name("CommandLists/bare")->Arg(1)->Arg(100)->UseRealTime();

}  // namespace
}  // namespace qor::bench
