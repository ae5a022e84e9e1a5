#include "hosting/EndingSignals.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace qor::hosting {

namespace {

bool isIgnored(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void dieBy(int signal) {
  std::signal(signal, SIG_DFL);
  sigset_t set;
  ::sigemptyset(&set);
  ::sigaddset(&set, signal);
  ::kill(::getpid(), signal);
  ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace

EndingSignals::EndingSignals(std::function<void()> prepare) : prepare_(std::move(prepare)) {
  ::sigemptyset(&set_);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    if (!isIgnored(signal)) ::sigaddset(&set_, signal);
  }
  ::pthread_sigmask(SIG_BLOCK, &set_, nullptr);
  signals_ = base::FileDescriptor(::signalfd(-1, &set_, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!signals_.isOpen()) throw std::system_error(errno, std::system_category(), "cannot wait for signals");
  thread_ = std::thread([this] { attend(); });
}

EndingSignals::~EndingSignals() {
  const char anything = 0;
  // The pipe has room: nobody else writes to it.
  [[maybe_unused]] const auto written = ::write(end_.write.get(), &anything, sizeof anything);
  thread_.join();
  ::pthread_sigmask(SIG_UNBLOCK, &set_, nullptr);
}

void EndingSignals::attend() {
  ::prctl(PR_SET_NAME, "tamb-signals");
  std::array<pollfd, 2> awaited{{{.fd = signals_.get(), .events = POLLIN, .revents = 0},
                                 {.fd = end_.read.get(), .events = POLLIN, .revents = 0}}};
  while (awaited[1].revents == 0) {
    ::poll(awaited.data(), awaited.size(), -1);
    signalfd_siginfo signal{};
    if (::read(signals_.get(), &signal, sizeof signal) == sizeof signal) {
      prepare_();
      dieBy(static_cast<int>(signal.ssi_signo));
    }
  }
}

}  // namespace qor::hosting
