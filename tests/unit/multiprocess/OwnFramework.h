#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tamb/ElementFactory.h"
#include "tamb/IParametersCollection.h"

namespace qor::multiprocess_communication {

/// What a program of ours has in the place of the framework's registry and collections: this source defines
/// their functions, which are declared in platform/, so that they do what a test says. To be set while no
/// other thread calls them.
struct OwnFramework {
  /// Called ahead of every call, with the function's name; what it throws is thrown in its place.
  std::function<void(const std::string& function)> before;
  /// What is made when an instance is asked for; one that knows no keys unless a test says otherwise.
  std::shared_ptr<tamb::IParametersCollectionInstance> instance;
  /// The names of those who have registered a factory.
  std::vector<std::string> registered;

  static OwnFramework& get();
};

}  // namespace qor::multiprocess_communication
