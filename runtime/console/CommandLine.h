#pragma once

#include <CLI/CLI.hpp>
#include <optional>

namespace qor::console {

/// Parses the command line of a program, after adding --version to what it takes. The program's exit code
/// when there is nothing to run: 0 when it was asked about itself, 2 after wrong usage; either has been
/// answered.
///
/// Sets what two signals do, whatever the process was started with: SIGPIPE is ignored, since whoever reads
/// our output may go before us, and that ends nothing; SIGCHLD is not, since children are waited for. Takes
/// as many descriptors as the system allows: a peer that connects when none is free is refused. To
/// be called before anything is opened: the numbers of standard streams that are closed are occupied.
std::optional<int> parseCommandLine(CLI::App& app, int argumentCount, char** arguments);

}  // namespace qor::console
