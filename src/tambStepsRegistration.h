#pragma once

#include <memory>

#include "tamb/ElementFactory.h"
#include "tamb/IParametersCollection.h"

namespace qor::multiprocess_communication {

/// Registers remote engines with the framework under the plug-in's name. A failure is logged; the host
/// continues without them.
void RegisterRemoteEngine(const char* name);

/// Creates a remote engine with its command processor and its notification hub. Does not read `config`: an
/// engine gets its configuration through SetInitConfig.
tamb::ElementFactory<tamb::ElementFactoryType::Engine>::Product InstantiateRemoteEngine(
    std::shared_ptr<const tamb::IParametersCollectionInstance> config);

}  // namespace qor::multiprocess_communication

/// The framework calls this when it has loaded the plug-in.
extern "C" void RegisterAll(const char* name);
