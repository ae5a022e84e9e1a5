#pragma once

#include <memory>

#include "tamb/ElementFactory.h"
#include "tamb/IParametersCollection.h"

namespace qor::multiprocess_communication {

/// Makes remote engines known to the framework, under the plug-in's name. A failure is logged: the host goes
/// on without them.
void RegisterRemoteEngine(const char* name);

/// A new remote engine, with its command processor and its notification hub. `config` is not read: an engine
/// gets its configuration by SetInitConfig.
tamb::ElementFactory<tamb::ElementFactoryType::Engine>::Product InstantiateRemoteEngine(
    std::shared_ptr<const tamb::IParametersCollectionInstance> config);

}  // namespace qor::multiprocess_communication

/// What the framework calls when it has loaded the plug-in.
extern "C" void RegisterAll(const char* name);
