#pragma once

#include <string>
#include <string_view>

namespace qor::programs {

/// What is worth reading in the text of an exception with which the plug-in refuses something: without the
/// frame of a failed check, "[CLASS: TEXT] [ CONDITION ]", and for a submission that the service refused, the
/// service's own words. Those stand in the text as protobuf's text format prints them,
///
///   Unexpected reply from service: kind: 5
///   refusal: "cannot start engine 7 of \"studio\": ..."
///
/// and are unescaped. Any other text is returned as it is. Any thread.
std::string reasonIn(std::string_view text);

}  // namespace qor::programs
