#include "engines/media/MediaManual.h"

#include <vector>

#include "engines/sdk/NotificationNames.h"

namespace qor::engines {

namespace {

using tamb::TambType;

std::vector<ManualKey> documentKeys() {
  return {
      {.name = "input",
       .type = KeyType::Location,
       .summary = "A file, a named pipe, or a URL that FFmpeg can open",
       .isRequired = true},
      {.name = "output",
       .type = KeyType::Location,
       .summary = "Where to write; by default the input is only analysed"},
      {.name = "audioFilter", .summary = "Audio filters, in FFmpeg's syntax"},
      {.name = "videoFilter", .summary = "Video filters, in FFmpeg's syntax"},
      {.name = "loudness",
       .type = KeyType::Flag,
       .summary = "Measure the loudness after the audio filter, by EBU R128"},
      {.name = "settings",
       .type = KeyType::Object,
       .summary = "How to write, and what to do with damaged parts",
       .keys =
           {{.name = "videoCodec", .summary = "FFmpeg's name for it; by default the container's usual codec"},
            {.name = "audioCodec", .summary = "FFmpeg's name for it; by default the container's usual codec"},
            {.name = "container", .summary = "FFmpeg's name for it; by default the output's ending decides"},
            {.name = "onError",
             .type = KeyType::Choice,
             .summary = "What to do with parts that cannot be decoded",
             .choices = {"skip", "fail"}}}},
      {.name = "realTime", .type = KeyType::Flag, .summary = "Process in real time"},
      {.name = "startPaused",
       .type = KeyType::Flag,
       .summary = "Wait at the start for Resume, so that no command pushed before it is late"},
  };
}

std::vector<ManualCommand> commands() {
  return {
      {.name = "FilterCommand",
       .summary = "Sends a command to filters at a media time",
       .arguments = {{.name = "target", .summary = "A filter's kind, its name as in volume@level, or all"},
                     {.name = "command", .summary = "The filter's command"},
                     {.name = "argument", .summary = "The command's argument"}}},
      {.name = "Pause", .summary = "Pauses the run"},
      {.name = "Resume", .summary = "Resumes a paused run, whatever the command's media time"},
      {.name = "Stop", .summary = "Ends the run as if the media ended there"},
  };
}

std::vector<ManualNotification> notifications() {
  const ManualValue stream{.name = "stream", .type = TambType::Int64, .summary = "The stream's number"};
  const ManualValue reason{.name = names::reason};
  return {
      {.line = "Started",
       .summary = "The input and the output are open",
       .values = {{"streams", TambType::Uint64, "How many there are"},
                  {"streamN", TambType::UTF8String, "What each holds: stream0, stream1, ..."},
                  {"duration", TambType::Double, "Seconds; 0 if unknown"}}},
      {.line = names::progress,
       .summary = "The position has passed a half second of media",
       .values = {{names::position, TambType::Double, "Seconds of media"},
                  {names::percentage, TambType::Double, "0 if the duration is unknown"},
                  {names::speed, TambType::Double, "Media time by elapsed time"}}},
      {.line = names::loudness,
       .summary = "The measurement has passed a second of media",
       .values = {{names::momentary, TambType::Double, "LUFS"}, {"integrated", TambType::Double, "LUFS"}}},
      {.line = "DecodeError",
       .summary = "A part of a stream, or of the file, was skipped; up to 20",
       .values = {stream, reason}},
      {.line = "TimeJump",
       .summary = "Time stamps jump, and the output goes on without the jump; up to 20",
       .values = {stream, {"by", TambType::Double, "Seconds"}}},
      {.line = "FormatChanged",
       .summary = "Frames have another format from here on; up to 20",
       .values = {stream, {.name = "from"}, {.name = "to"}}},
      {.line = "StreamLeftOut",
       .summary = "A stream is not part of the run; up to 20",
       .values = {stream, reason}},
      {.line = "GapFilled",
       .summary = "A gap of the sound was filled with silence; up to 20",
       .values = {{"duration", TambType::Double, "Seconds"}}},
      {.line = names::finished,
       .summary = "The run has ended and did not fail",
       .values = {{"videoFrames", TambType::Uint64, "Decoded frames"},
                  {"audioFrames", TambType::Uint64, "Decoded frames"},
                  {"duration", TambType::Double, "Seconds of media"},
                  {names::stopped, TambType::Bool, "Whether it was stopped"},
                  {"decodeErrors", TambType::Uint64, "How many parts were skipped"},
                  {"timeJumps", TambType::Uint64, "How many were corrected"},
                  {"filledGaps", TambType::Uint64, "How many were filled"},
                  {"integrated", TambType::Double, "LUFS; only if it was measured"}}},
  };
}

}  // namespace

const EngineManual& mediaManual() {
  static const auto manual = withCommonNotifications({
      .name = "media",
      .summary = "Transcodes or analyses one media file, on FFmpeg's libraries",
      .step = "media",
      .keys = documentKeys(),
      .commands = commands(),
      .notifications = notifications(),
  });
  return manual;
}

}  // namespace qor::engines
