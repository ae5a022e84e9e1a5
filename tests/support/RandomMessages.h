#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>

#include "tamb/ICommandMessage.h"
#include "tamb/INotificationMessage.h"
#include "tamb/IParametersCollection.h"

namespace qor::test {

/// Random values, and messages made of them; the same seed gives the same sequence. About half of all numbers
/// are extreme ones: the ends of their types, zeros of both signs, infinities, NaNs, denormals. Texts are
/// valid UTF-8: empty, with zero bytes, with characters of one to four bytes, some long. A message takes less
/// than 10 000 bytes when it is encoded, so that five fit into any batch.
class RandomMessages {
 public:
  explicit RandomMessages(std::uint64_t seed) : random_(seed) {}

  std::size_t upTo(std::size_t largest);
  bool oneIn(std::size_t cases) { return upTo(cases - 1) == 0; }

  bool boolean() { return oneIn(2); }
  std::uint32_t uint32();
  std::int64_t int64();
  std::uint64_t uint64();
  double real();
  std::string text();

  /// Has between 0 and 12 keys of the supported types, in any order, with defaults and descriptions. Some of
  /// them are set.
  std::shared_ptr<const tamb::IParametersCollectionInstance> collection();
  /// Addressed to an engine; everything else is random. One in four has no collection, and every other time a
  /// clock.
  std::shared_ptr<const tamb::ICommandMessage> command(const std::string& workflowManagerId,
                                                       unsigned int engineId);
  std::shared_ptr<const tamb::INotificationMessage> notification(const std::string& workflowManagerId,
                                                                 unsigned int engineId);

 private:
  std::uint32_t character();
  std::string shortText();
  tamb::MediaTime time();
  std::shared_ptr<const tamb::IParametersCollectionInstance> collectionOrNone();

  std::mt19937_64 random_;
  bool hadLongText_ = false;  ///< in the current message: one is enough
};

}  // namespace qor::test
