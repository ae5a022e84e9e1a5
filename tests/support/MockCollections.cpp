#include "tests/support/MockCollections.h"

namespace qor::test {

MockPrototype::MockPrototype() = default;
MockPrototype::~MockPrototype() = default;

MockInstance::MockInstance() = default;
MockInstance::~MockInstance() = default;

}  // namespace qor::test
