#pragma once

#include <memory>

#include "tamb/ICommandProcessor.h"
#include "tamb/INotificationHub.h"

namespace qor::hosting {

/// The two members of an edit rate are exchanged on their way between the processes. An engine keeps the same
/// times here as in its host's own process: what arrives is exchanged back, and what leaves is exchanged
/// ahead.

/// A front end that passes commands on with the edit rates that the host gave them. Takes pushes as the
/// processor does: it has no lock of its own.
std::shared_ptr<tamb::ICommandProcessorFrontEnd> withHostsEditRates(
    std::shared_ptr<tamb::ICommandProcessorFrontEnd> processor);

/// A hub that passes notifications on so that they reach the host with the edit rates that the engine gave
/// them. Takes pushes as the hub does: it has no lock of its own.
std::shared_ptr<tamb::INotificationHubBackEnd> withEnginesEditRates(
    std::shared_ptr<tamb::INotificationHubBackEnd> hub);

}  // namespace qor::hosting
