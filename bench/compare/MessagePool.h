#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "bench/compare/Case.h"
#include "bench/compare/TypicalMessages.h"

namespace qor::bench {

/// The lists of a run, created in advance, because the creation of framework objects is not the channel's
/// work.
template <class Message>
class MessagePool {
 public:
  using List = std::vector<std::shared_ptr<const Message>>;
  using Make = std::shared_ptr<const Message> (*)(unsigned int id, bool withParameters);

  MessagePool(const Case& run, Make make) {
    for (std::size_t id = 0; id < run.ids(); ++id) {
      if (id % run.perList == 0) lists_.emplace_back();
      lists_.back().push_back(make(static_cast<unsigned int>(id), run.withParameters));
    }
  }

  /// The list of that number, modulo the number of lists.
  const List& list(std::size_t number) const { return lists_[number % lists_.size()]; }

 private:
  std::vector<List> lists_;
};

}  // namespace qor::bench
