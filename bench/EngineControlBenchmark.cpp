#include <benchmark/benchmark.h>
#include <zmq.h>

#include <memory>
#include <thread>

#include "TcpEngine.pb.h"
#include "TcpEngineBackEnd.h"
#include "TcpEngineFrontEnd.h"
#include "bench/BareSockets.h"
#include "bench/PrivateEndpoint.h"
#include "tests/support/FakeEngine.h"

namespace qor::bench {
namespace {

namespace proto = multiprocess_communication::proto;
using multiprocess_communication::TcpEngineBackEnd;
using multiprocess_communication::TcpEngineFrontEnd;

constexpr int exchanges = 10'000;
constexpr unsigned int timeOutMilliseconds = 1'000;

/// One iteration is a Ping of the front end, as a host calls it, to the engine and back.
void pingOurs(benchmark::State& state) {
  const PrivateEndpoint request;
  const PrivateEndpoint status;
  const TcpEngineBackEnd backEnd(std::make_shared<test::FakeEngine>(), request.endpoint(), status.endpoint());
  TcpEngineFrontEnd frontEnd;
  frontEnd.SetInitConfig(TcpEngineFrontEnd::GenerateConfig(request.endpoint(), status.endpoint()));
  for ([[maybe_unused]] auto _ : state) frontEnd.Ping(timeOutMilliseconds);
}

/// The same messages between bare sockets, in reused objects.
void pingBare(benchmark::State& state) {
  const PrivateEndpoint endpoint;
  BareSocket replier(ZMQ_REP, endpoint.text(), true);
  BareSocket requester(ZMQ_REQ, endpoint.text(), false);
  std::thread backEnd([&] {
    proto::EngineFrontEndRequest request;
    proto::EngineBackEndReply reply;
    reply.set_type(proto::EngineBackEndReply::Success);
    reply.set_replystring("");
    reply.set_errorstring("");
    do {
      replier.receive(request);
      replier.send(reply);
    } while (request.type() != proto::EngineFrontEndRequest::FrontEndTermination);
  });
  proto::EngineFrontEndRequest request;
  proto::EngineBackEndReply reply;
  const auto exchange = [&](proto::EngineFrontEndRequest_RequestType type) {
    request.set_type(type);
    request.set_timeoutmilliseconds(timeOutMilliseconds);
    requester.send(request);
    requester.receive(reply);
  };
  for ([[maybe_unused]] auto _ : state) exchange(proto::EngineFrontEndRequest::Ping);
  exchange(proto::EngineFrontEndRequest::FrontEndTermination);
  backEnd.join();
}

BENCHMARK(pingOurs)->Name("Ping/ours")->Iterations(exchanges)->UseRealTime();
BENCHMARK(pingBare)->Name("Ping/bare")->Iterations(exchanges)->UseRealTime();

}  // namespace
}  // namespace qor::bench
