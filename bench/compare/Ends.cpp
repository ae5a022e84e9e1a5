#include "bench/compare/Ends.h"

#include <utility>

#include "bench/compare/BareEnds.h"
#include "bench/compare/GrpcEnds.h"
#include "bench/compare/OurEnds.h"

namespace qor::bench {

namespace {

bool isBare(Library library) {
  return library == Library::Bare || library == Library::BareGuarded || library == Library::BareValues;
}

}  // namespace

std::unique_ptr<HostEnd> makeHostEnd(const Case& run, const Addresses& addresses, Arrived arrived) {
  if (run.library == Library::Ours) return makeOurHostEnd(addresses, std::move(arrived));
  if (isBare(run.library)) return makeBareHostEnd(run, addresses, std::move(arrived));
  return makeGrpcHostEnd(run, addresses, std::move(arrived));
}

std::unique_ptr<EngineEnd> makeEngineEnd(const Case& run, const Addresses& addresses, Arrived arrived) {
  if (run.library == Library::Ours) return makeOurEngineEnd(addresses, std::move(arrived));
  if (isBare(run.library)) return makeBareEngineEnd(run, addresses, std::move(arrived));
  return makeGrpcEngineEnd(run, addresses, std::move(arrived));
}

}  // namespace qor::bench
