#pragma once

#include <map>
#include <memory>
#include <string>

#include "tamb/IEndpoints.h"
#include "tamb/ILogger.h"
#include "tamb/IMediaClock.h"
#include "tamb/IMemoryBlockAllocator.h"

namespace tamb {

/// Sets the context string of the calling thread, for its later log records, from the engine's name and
/// number. The other arguments are those that the engine was given; they are not kept.
void DefineContextEngine_deprecated(
    const std::string& name, unsigned int engineId, std::shared_ptr<const IMediaClock> clock,
    const std::map<std::string, std::shared_ptr<IInputEndpoint>>& inputEndpoints,
    const std::map<std::string, std::shared_ptr<IOutputEndpoint>>& outputEndpoints,
    const std::map<std::string, std::shared_ptr<IMemoryBlockAllocator>>& allocators,
    const std::map<std::string, std::shared_ptr<ILogger>>& loggers,
    const std::map<std::string, void*>& benchmarkers);

/// The context string of the calling thread; empty until it is set. Does not block.
std::string GetCurrentContextString();

/// The calling thread's kernel id in decimal, as external tools display it.
std::string GetThreadId();

/// The current time in UTC, as in 2026-03-01T12:34:56.789012Z. Any thread.
std::string GetCurrentTimeString();

/// A new random UUID: 36 characters in lower case. Any thread. Throws std::runtime_error if the system
/// provides no random bytes.
std::string GetUUIDString();

/// The number in decimal.
std::string ToString(int number);

}  // namespace tamb
