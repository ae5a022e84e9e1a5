#pragma once

#include <google/protobuf/message.h>
#include <google/protobuf/unknown_field_set.h>

#include <cstddef>
#include <stdexcept>
#include <string>

namespace qor::test {

/// The encoding of a message, padded to exactly that size in bytes by a field that no schema contains.
/// Receivers parse it like the message itself. Throws std::logic_error if such a field is impossible.
template <class Message>
std::string paddedTo(std::size_t size, Message message) {
  constexpr int unknownField = 1'000;
  auto* const fields = message.GetReflection()->MutableUnknownFields(&message);
  std::string* const padding = fields->AddLengthDelimited(unknownField);
  if (message.ByteSizeLong() > size) throw std::logic_error("the message is larger than that");
  padding->assign(size - message.ByteSizeLong(), 'x');
  // The encoding of its length needs more bytes than that of 0.
  padding->resize(padding->size() - (message.ByteSizeLong() - size));
  if (message.ByteSizeLong() != size) throw std::logic_error("no padding makes it that large");
  return message.SerializeAsString();
}

}  // namespace qor::test
