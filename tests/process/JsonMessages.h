#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tamb/ICommandMessage.h"
#include "tamb/INotificationMessage.h"

namespace qor::test {

/// The JSON format in which a test in another language sends and receives commands and notifications.
///
/// - A command: args, time, name, id, workflowManagerId, engineId, stepId.
/// - A notification: object, time, stepId, line, id, commandId, workflowManagerId, engineId, isAnError.
/// - A time is an array: the first and the second member of its edit rate, and its time number.
/// - A collection is null, or an array of its parameters in their order, each an array: type, key, default
///   and value. A double is represented by the number formed by its 64 bits, because JSON has no NaNs and
///   infinities.
using Json = nlohmann::json;

Json describe(const tamb::ICommandMessage& command);
Json describe(const tamb::INotificationMessage& notification);

/// Null gives an empty pointer. Throws std::exception for any other format.
std::shared_ptr<const tamb::ICommandMessage> commandFrom(const Json& description);
std::shared_ptr<const tamb::INotificationMessage> notificationFrom(const Json& description);

/// Converts an array, element by element.
template <class Make>
auto allFrom(const std::string& text, const Make& make) {
  std::vector<decltype(make(Json()))> made;
  for (const Json& description : Json::parse(text)) made.push_back(make(description));
  return made;
}

/// One line of ASCII. Bytes that are not UTF-8 are replaced.
inline std::string lineOf(const Json& description) {
  return description.dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace qor::test
