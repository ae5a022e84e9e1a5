#pragma once

#include <string>
#include <string_view>

namespace qor::programs {

/// Extracts the reason from the text of an exception that the plug-in throws: removes the frame of a failed
/// check, "[CLASS: TEXT] [ CONDITION ]"; for a submission that the service refused, returns the service's own
/// text. The exception holds that in protobuf's text format,
///
///   Unexpected reply from service: kind: 5
///   refusal: "cannot start engine 7 of \"studio\": ..."
///
/// and it is unescaped. Any other text is returned unchanged. Any thread.
std::string reasonIn(std::string_view text);

}  // namespace qor::programs
