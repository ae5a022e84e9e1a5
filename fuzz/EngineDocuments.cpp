#include <cstddef>
#include <cstdint>
#include <string>

#include "engines/media/MediaDocument.h"
#include "engines/sdk/EngineDocument.h"
#include "fuzz/ReadableLine.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/engines/fault/TestDocument.h"

namespace {

using qor::fuzz::require;
namespace engines = qor::engines;

/// An error text quotes a part of the document, and lists the valid keys.
constexpr std::size_t longestComplaint = 1'000;

void requireSound(const engines::MediaDocument& media) {
  require(!media.input.empty(), "media come from somewhere");
  for (const auto& text : {media.input, media.output, media.audioFilter, media.videoFilter,
                           media.settings.videoCodec, media.settings.audioCodec, media.settings.container}) {
    require(text.find('\0') == std::string::npos, "no text ends before its end");
  }
  const bool hasSettings = !media.settings.videoCodec.empty() || !media.settings.audioCodec.empty() ||
                           !media.settings.container.empty();
  require(!hasSettings || !media.output.empty(), "settings are those of an output");
}

void requireSound(const engines::TestDocument& test) {
  require(test.behaviour <= engines::TestBehaviour::Throw, "the behaviour is one that there is");
  require(test.when <= engines::TestMoment::Command, "the moment is one that there is");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    if (engines::engineNamedIn(text, {"media", "test"}) == "media") {
      requireSound(engines::readMediaDocument(text));
    } else {
      requireSound(engines::readTestDocument(text));
    }
  } catch (const tamb::TAMBRuntimeError& error) {
    qor::fuzz::requireReadableLine(error.what(), longestComplaint);
  }
  return 0;
}
