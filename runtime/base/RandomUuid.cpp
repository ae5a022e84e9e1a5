#include "runtime/base/RandomUuid.h"

#include <pthread.h>
#include <unistd.h>
#include <uuid/uuid.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <system_error>

namespace qor::base {

namespace {

/// A forked child must not use the bytes that its parent uses.
std::atomic<unsigned int> forks{0};
/// Fails only if memory is exhausted; then the program could not have been loaded.
[[maybe_unused]] const int forksAreCounted = ::pthread_atfork(nullptr, nullptr, [] { ++forks; });

/// Random bytes of one thread, fetched in blocks: every received notification needs an identifier, and a
/// system call for each would cost more than the rest of its reception. Trivially destructible, because
/// identifiers are also created while a thread exits.
struct RandomBytes {
  std::array<unsigned char, 256> bytes;  ///< the most that getentropy returns at once
  std::size_t used = sizeof bytes;
  unsigned int forksSeen = 0;

  void take(uuid_t& uuid) {
    if (const unsigned int now = forks.load(std::memory_order_relaxed);
        used == bytes.size() || forksSeen != now) {
      if (::getentropy(bytes.data(), bytes.size()) != 0) {
        throw std::system_error(errno, std::system_category(), "no random bytes for an identifier");
      }
      used = 0;
      forksSeen = now;
    }
    std::memcpy(uuid, bytes.data() + used, sizeof uuid);
    used += sizeof uuid;
  }
};

thread_local RandomBytes randomBytes;

}  // namespace

std::string randomUuid() {
  uuid_t uuid;
  randomBytes.take(uuid);
  // Version 4 (random), in the variant of RFC 4122.
  uuid[6] = static_cast<unsigned char>((uuid[6] & 0x0fU) | 0x40U);
  uuid[8] = static_cast<unsigned char>((uuid[8] & 0x3fU) | 0x80U);
  std::array<char, UUID_STR_LEN> text{};
  uuid_unparse_lower(uuid, text.data());
  return text.data();
}

}  // namespace qor::base
