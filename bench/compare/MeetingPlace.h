#pragma once

#include <filesystem>
#include <vector>

#include "bench/compare/Ends.h"

namespace qor::bench {

/// The endpoints between the host and the engines of one run: sockets in a private directory, or free ports
/// of the loopback interface. The destructor removes the directory.
class MeetingPlace {
 public:
  MeetingPlace(Transport transport, std::size_t engines);
  ~MeetingPlace();
  MeetingPlace(const MeetingPlace&) = delete;
  MeetingPlace& operator=(const MeetingPlace&) = delete;

  const std::vector<Addresses>& ofEngines() const { return ofEngines_; }

 private:
  std::filesystem::path directory_;
  std::vector<Addresses> ofEngines_;
};

}  // namespace qor::bench
