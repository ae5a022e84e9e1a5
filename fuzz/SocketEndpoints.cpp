#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "fuzz/ReadableLine.h"
#include "qor/socket/SocketEndpoint.h"

namespace {

using qor::fuzz::require;
using qor::socket::SocketEndpoint;

/// An error text quotes a part of the endpoint.
constexpr std::size_t longestRefusal = 1'200;

std::optional<SocketEndpoint> parsed(const std::string& text) {
  try {
    return SocketEndpoint::FromString(text);
  } catch (const std::runtime_error& error) {
    qor::fuzz::requireReadableLine(error.what(), longestRefusal);
    return std::nullopt;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto endpoint = parsed(std::string(reinterpret_cast<const char*>(data), size));
  if (!endpoint) return 0;
  const std::string canonical = endpoint->toString(qor::socket::Protocol::Plain);
  const auto again = parsed(canonical);
  require(again.has_value(), "the canonical text can be read");
  require(*again == *endpoint, "the canonical text means the same");
  require(again->toString(qor::socket::Protocol::Plain) == canonical, "there is one canonical text");
  require(endpoint->transport() == SocketEndpoint::Transport::Tcp || endpoint->port() == 0,
          "only tcp has ports");
  require(!endpoint->host().empty(), "an endpoint is somewhere");
  require(canonical.starts_with(endpoint->address()), "parameters follow the address");
  const auto bare = parsed(endpoint->address());
  require(bare.has_value() && bare->readers() == 0 && bare->address() == endpoint->address(),
          "the address is an endpoint without parameters");
  return 0;
}
