#include <cstdio>

#include "TcpCommandProcessorBackEnd.h"
#include "TcpEngineBackEnd.h"
#include "TcpNotificationHubBackEnd.h"
#include "examples/counter/CounterEngine.h"
#include "runtime/tamb/CommandProcessor.h"

// An engine's process of one's own: the three back ends of the plug-in around an engine.
int main(int argumentCount, char** arguments) {
  if (argumentCount != 5) {
    std::fprintf(stderr,
                 "usage: counter-engine REQUEST STATUS COMMAND NOTIFICATION   (endpoints, as ipc://PATH)\n");
    return 2;
  }
  using namespace qor::multiprocess_communication;
  const auto endpoint = [&](int i) { return qor::socket::SocketEndpoint::FromString(arguments[i]); };
  const auto [commandFrontEnd, commandBackEnd] = tamb::CreateCommandProcessor();
  const auto engine = std::make_shared<qor::examples::CounterEngine>(commandBackEnd);
  engine->SetWorkflowManagerId("example");
  engine->SetEngineId(1);

  engine->SetNotificationHubBackEnd(std::make_shared<TcpNotificationHubBackEnd>("example", 1, endpoint(4)));
  const TcpCommandProcessorBackEnd commands(commandFrontEnd, commandBackEnd, endpoint(3));
  TcpEngineBackEnd control(engine, endpoint(1), endpoint(2));
  control.waitForFrontEndTermination();
  engine->RequestStop();
  return 0;
}
