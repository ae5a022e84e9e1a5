#pragma once

#include <string>

#include "TcpEngine.pb.h"

namespace qor::multiprocess_communication {

/// The front end's bound on the encoding of a reply, in bytes.
inline constexpr unsigned int engineReplySizeBound = 8'192;

/// Gives a reply its error text, cut to what fits into engineReplySizeBound beside what else the reply has by
/// then: a long reason is better cut than lost. A character of UTF-8 is not cut in two.
void setErrorText(proto::EngineBackEndReply& reply, const std::string& text);

}  // namespace qor::multiprocess_communication
