#pragma once

#include <string>

#include "tamb/ICommandMessage.h"
#include "tamb/INotificationMessage.h"
#include "tamb/IParametersCollection.h"

namespace qor::test {

/// The first difference between what arrived at the other side of the process boundary and what has to arrive
/// when this is sent, in words; empty when there is none. Keys have to come grouped by type and without
/// descriptions, the edit rate with its members exchanged, the time without clock, and a notification with
/// another id and never as an error. Doubles are told apart by their bits.
std::string differenceAfterCrossing(const tamb::IParametersCollectionInstance& sent,
                                    const tamb::IParametersCollectionInstance& arrived);
std::string differenceAfterCrossing(const tamb::ICommandMessage& sent, const tamb::ICommandMessage& arrived);
std::string differenceAfterCrossing(const tamb::INotificationMessage& sent,
                                    const tamb::INotificationMessage& arrived);

}  // namespace qor::test
