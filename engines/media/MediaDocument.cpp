#include "engines/media/MediaDocument.h"

#include <fmt/format.h>

#include "engines/media/MediaManual.h"
#include "engines/sdk/EngineDocument.h"

namespace qor::engines {

MediaDocument readMediaDocument(const std::string& text) {
  const auto values = readDocument(text, mediaManual());
  const auto& settings = values.object("settings");
  MediaDocument document{
      .input = values.text("input"),
      .output = values.text("output"),
      .audioFilter = values.text("audioFilter"),
      .videoFilter = values.text("videoFilter"),
      .loudness = values.flag("loudness"),
      .settings = {.videoCodec = settings.text("videoCodec"),
                   .audioCodec = settings.text("audioCodec"),
                   .container = settings.text("container")},
      .onError = settings.choice<OnError>("onError"),
      .realTime = values.flag("realTime"),
      .startPaused = values.flag("startPaused"),
  };
  const auto& writing = document.settings;
  if (document.output.empty() && !(writing.videoCodec + writing.audioCodec + writing.container).empty()) {
    refuseDocument(fmt::format(R"("settings" are {}, but there is no "output"; expected both or neither)",
                               values.quoted("settings")));
  }
  return document;
}

}  // namespace qor::engines
