#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include "runtime/inproc/InprocSocketFactory.h"
#include "runtime/zmq/ZmqSocketFactory.h"

/// Runs the suite over one of the two implementations: --sockets=inproc, or --sockets=zmq, which is the
/// default.
int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  const std::string chosen = argc > 1 ? argv[1] : "--sockets=zmq";
  if (argc > 2 || (chosen != "--sockets=zmq" && chosen != "--sockets=inproc")) {
    std::cerr << argv[0] << ": unknown argument \"" << argv[argc - 1]
              << "\": expected --sockets=zmq or --sockets=inproc\n";
    return EXIT_FAILURE;
  }
  qor::socket::installSocketFactory(chosen == "--sockets=zmq" ? qor::socket::zmqSocketFactory()
                                                              : qor::socket::inprocSocketFactory());
  return RUN_ALL_TESTS();
}
