#pragma once

#include <CLI/CLI.hpp>
#include <optional>

namespace qor::console {

/// Adds --version and parses the command line. Returns an exit code when the program has nothing to run: 0
/// after
/// --help or --version, 2 after wrong usage; the text has been printed.
///
/// Sets what two signals do, whatever the process was started with: SIGPIPE is ignored, since whoever reads
/// our output may go before us, and that ends nothing; SIGCHLD is not, since children are waited for. Takes
/// as many descriptors as the system allows: a peer that connects when none is free is refused. To
/// be called before anything is opened: the numbers of standard streams that are closed are occupied.
std::optional<int> parseCommandLine(CLI::App& app, int argumentCount, char** arguments);

}  // namespace qor::console
