#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tamb/ICommandMessage.h"
#include "tamb/INotificationMessage.h"

namespace qor::test {

/// How a driver in another language gives commands and notifications, and is told of them: as objects.
///
/// - A command: args, time, name, id, workflowManagerId, engineId, stepId.
/// - A notification: object, time, stepId, line, id, commandId, workflowManagerId, engineId, isAnError.
/// - A time is an array: the first and the second member of its edit rate, and its time number.
/// - A collection is null, or an array of its parameters in their order, each an array: type, key, default
///   and value. A double is given as the number that its 64 bits make: not every one has a form of its own.
using Json = nlohmann::json;

Json describe(const tamb::ICommandMessage& command);
Json describe(const tamb::INotificationMessage& notification);

/// Null makes an empty pointer. Throws std::exception for what is not described as above.
std::shared_ptr<const tamb::ICommandMessage> commandFrom(const Json& description);
std::shared_ptr<const tamb::INotificationMessage> notificationFrom(const Json& description);

/// What an array describes, element by element.
template <class Make>
auto allFrom(const std::string& text, const Make& make) {
  std::vector<decltype(make(Json()))> made;
  for (const Json& description : Json::parse(text)) made.push_back(make(description));
  return made;
}

/// One line of ASCII. Bytes that are no UTF-8 are replaced.
inline std::string lineOf(const Json& description) {
  return description.dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace qor::test
