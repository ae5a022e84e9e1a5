#include <cstdio>
#include <cstdlib>
#include <exception>

#include "tools/clip/Clip.h"

int main(int argumentCount, char** arguments) {
  if (argumentCount != 2) {
    std::fprintf(stderr, "usage: make-clip FILE   (six seconds of picture and tone, such as clip.mkv)\n");
    return 2;
  }
  try {
    qor::examples::writeClip({.video = "testsrc2=size=640x360:rate=25:duration=6,format=yuv420p",
                              .audio = "sine=frequency=440:beep_factor=4:sample_rate=48000:duration=6"},
                             arguments[1]);
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "make-clip: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
