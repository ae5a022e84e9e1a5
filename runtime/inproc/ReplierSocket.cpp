#include "runtime/inproc/ReplierSocket.h"

#include <utility>

namespace qor::socket::inproc {

void ReplierSocket::deliver(std::string encoded, Answer answer) {
  const std::size_t size = encoded.size();
  inbox_.keep({std::move(encoded), std::move(answer)}, size, label());
  wake();
}

std::string ReplierSocket::take() {
  Request request = std::move(inbox_.oldest());
  inbox_.dropOldest();
  pending_ = std::move(request.answer);
  return std::move(request.encoded);
}

void ReplierSocket::put(std::string encoded, base::Lock& /*lock*/) {
  const Answer answer = std::exchange(pending_, nullptr);
  if (!answer) throw failure("no request is waiting for an answer");
  if (!answer(std::move(encoded))) throw failure("the requester disconnected before its reply");
}

}  // namespace qor::socket::inproc
