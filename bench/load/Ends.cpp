#include "bench/load/Ends.h"

#include "bench/load/BareEnds.h"
#include "bench/load/OurEnds.h"

namespace qor::bench {

std::unique_ptr<Sender> makeSender(const LoadCase& load, const socket::SocketEndpoint& endpoint) {
  return load.library == Library::Ours ? makeOurSender(load, endpoint) : makeBareSender(load, endpoint);
}

std::unique_ptr<Receiver> makeReceiver(const LoadCase& load, const socket::SocketEndpoint& endpoint,
                                       const Arrived& arrived) {
  return load.library == Library::Ours ? makeOurReceiver(load, endpoint, arrived)
                                       : makeBareReceiver(load, endpoint, arrived);
}

}  // namespace qor::bench
