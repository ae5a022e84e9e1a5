#pragma once

#include <filesystem>
#include <string>

namespace tamb {

/// Loads the shared library at `path` and has it register its factories: calls its
///
///   extern "C" void RegisterAll(const char* name);
///
/// with the plug-in's name, which is returned too: the file's name without "lib" in front and without ".so"
/// and what follows it, "mixer" for /opt/engines/libmixer.so.2.
///
/// A plug-in stays mapped for the life of the process, since its code stands behind the factories that it has
/// registered and behind what they have made; its symbols stay its own. A file that turns out to be no
/// plug-in is unmapped again. Loading a plug-in once more only calls its RegisterAll once more.
///
/// Throws TAMBRuntimeError, one line that quotes the path, when there is no such file, when it is no shared
/// library that can be loaded, when it has no RegisterAll, and when RegisterAll throws. Any thread.
std::string LoadPlugin(const std::filesystem::path& path);

}  // namespace tamb
