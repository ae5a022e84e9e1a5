#include <cstdio>
#include <exception>
#include <memory>

#include "TcpCommandProcessorBackEnd.h"
#include "TcpEngineBackEnd.h"
#include "TcpNotificationHubBackEnd.h"
#include "examples/counter/CounterEngine.h"
#include "hosting/EditRates.h"
#include "runtime/tamb/CommandProcessor.h"

namespace {

using namespace qor::multiprocess_communication;

// The three back ends of the plug-in around an engine, until its host has gone. The channels exchange the two
// members of every edit rate: "hosting" exchanges them once more, so that host and engine see the same times.
void serve(char** endpoints) {
  const auto endpoint = [&](int i) { return qor::socket::SocketEndpoint::FromString(endpoints[i]); };
  const auto [commandFrontEnd, commandBackEnd] = tamb::CreateCommandProcessor();
  const auto engine = std::make_shared<qor::examples::CounterEngine>(commandBackEnd);
  engine->SetWorkflowManagerId("example");
  engine->SetEngineId(1);
  engine->SetNotificationHubBackEnd(qor::hosting::withEnginesEditRates(
      std::make_shared<TcpNotificationHubBackEnd>("example", 1, endpoint(3))));
  const TcpCommandProcessorBackEnd commands(qor::hosting::withHostsEditRates(commandFrontEnd), commandBackEnd,
                                            endpoint(2));
  TcpEngineBackEnd control(engine, endpoint(0), endpoint(1));
  control.waitForFrontEndTermination();
  engine->RequestStop();
}

}  // namespace

// An engine's process of one's own.
int main(int argumentCount, char** arguments) {
  if (argumentCount != 5) {
    std::fprintf(stderr,
                 "usage: counter-engine REQUEST STATUS COMMAND NOTIFICATION   (endpoints, as ipc://PATH)\n");
    return 2;
  }
  try {
    serve(arguments + 1);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "counter-engine: %s\n", error.what());
    return 1;
  }
}
