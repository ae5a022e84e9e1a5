#pragma once

#include <map>
#include <memory>
#include <string>

#include "tamb/IEndpoints.h"
#include "tamb/ILogger.h"
#include "tamb/IMediaClock.h"
#include "tamb/IMemoryBlockAllocator.h"

namespace tamb {

/// Says which engine the calling thread works for, from now on: sets the thread's context string from the
/// engine's name and number. The other arguments are what the engine was given; none of them is kept.
void DefineContextEngine_deprecated(
    const std::string& name, unsigned int engineId, std::shared_ptr<const IMediaClock> clock,
    const std::map<std::string, std::shared_ptr<IInputEndpoint>>& inputEndpoints,
    const std::map<std::string, std::shared_ptr<IOutputEndpoint>>& outputEndpoints,
    const std::map<std::string, std::shared_ptr<IMemoryBlockAllocator>>& allocators,
    const std::map<std::string, std::shared_ptr<ILogger>>& loggers,
    const std::map<std::string, void*>& benchmarkers);

/// What the calling thread works for; empty until it has said so.
std::string GetCurrentContextString();

/// The calling thread's kernel id in decimal, as tools outside the process show it.
std::string GetThreadId();

/// Now, in UTC, as in 2026-03-01T12:34:56.789012Z.
std::string GetCurrentTimeString();

/// A new random UUID: 36 characters in lower case. Throws std::runtime_error when the system has no
/// randomness to give.
std::string GetUUIDString();

/// The decimal text.
std::string ToString(int number);

}  // namespace tamb
