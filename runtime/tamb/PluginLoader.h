#pragma once

#include <filesystem>
#include <string>

namespace tamb {

/// Loads the shared library at `path`, which registers its factories: calls its
///
///   extern "C" void RegisterAll(const char* name);
///
/// with the plug-in's name, which is returned too: the file's name without "lib" in front and without ".so"
/// and what follows it, "mixer" for /opt/engines/libmixer.so.2.
///
/// A plug-in stays mapped until the process exits, because its code implements the registered factories and
/// the elements that they create; its symbols stay local to it. A file that is not a plug-in is unmapped
/// again. Loading a plug-in again only calls its RegisterAll again.
///
/// Throws TAMBRuntimeError, one line that quotes the path, if the file does not exist, is not a loadable
/// shared library, or has no RegisterAll, and if RegisterAll throws. Any thread.
std::string LoadPlugin(const std::filesystem::path& path);

}  // namespace tamb
