#include "hosting/EngineReporter.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <string>

#include "hosting/TimeLimits.h"

namespace qor::hosting {

void EngineReporter::report(const EngineReport& report) const {
  if (report.event == EngineEvent::Ready) ::prctl(PR_SET_PDEATHSIG, 0);
  if (report.event == EngineEvent::Leaving) ::alarm(static_cast<unsigned int>(lastSeconds.count()));
  const std::string line = reportLine(report);
  // Without a supervisor, nobody reads it.
  [[maybe_unused]] const auto written = ::write(pipe_.get(), line.data(), line.size());
}

}  // namespace qor::hosting
