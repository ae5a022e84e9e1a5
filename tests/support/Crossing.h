#pragma once

#include <string>

#include "tamb/ICommandMessage.h"
#include "tamb/INotificationMessage.h"
#include "tamb/IParametersCollection.h"

namespace qor::test {

/// The first difference between a message that arrived on the other side of the process boundary and the
/// expected result of sending `sent`, as a text; empty if there is none. Keys have to be grouped by type and
/// without descriptions, the edit rate with its members swapped, the time without clock, and a notification
/// with another id and never as an error. Doubles are compared by their bits.
std::string differenceAfterCrossing(const tamb::IParametersCollectionInstance& sent,
                                    const tamb::IParametersCollectionInstance& arrived);
std::string differenceAfterCrossing(const tamb::ICommandMessage& sent, const tamb::ICommandMessage& arrived);
std::string differenceAfterCrossing(const tamb::INotificationMessage& sent,
                                    const tamb::INotificationMessage& arrived);

}  // namespace qor::test
