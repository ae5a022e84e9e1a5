#include "runtime/tamb/ParametersCollectionPrototype.h"

namespace tamb {

std::shared_ptr<IParametersCollectionPrototype> CreateParametersCollectionPrototype() {
  return std::make_shared<ParametersCollectionPrototype>();
}

}  // namespace tamb
