#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "bench/load/Ends.h"
#include "bench/load/TypicalMessages.h"

namespace qor::bench {

/// What differs between the two channels for whoever sends typical messages.
struct Commands {
  using Message = tamb::ICommandMessage;
  static std::shared_ptr<const Message> typical(unsigned int id, bool withParameters) {
    return typicalCommand(id, withParameters);
  }
};
struct Notifications {
  using Message = tamb::INotificationMessage;
  static std::shared_ptr<const Message> typical(unsigned int id, bool withParameters) {
    return typicalNotification(id, withParameters);
  }
};

/// The lists of a load, made beforehand: making framework objects is their owner's work, not the channel's.
template <class Traits>
class MessagePool {
 public:
  using List = std::vector<std::shared_ptr<const typename Traits::Message>>;

  explicit MessagePool(const LoadCase& load) {
    for (std::size_t id = 0; id < distinctIds; ++id) {
      if (id % load.messagesPerList == 0) lists_.emplace_back();
      lists_.back().push_back(Traits::typical(static_cast<unsigned int>(id), load.withParameters));
    }
  }

  /// The list whose first message is message `first` of the load.
  const List& listAt(std::size_t first) const { return lists_[first % distinctIds / lists_.front().size()]; }

 private:
  std::vector<List> lists_;
};

}  // namespace qor::bench
