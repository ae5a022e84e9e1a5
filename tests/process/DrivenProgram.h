#pragma once

#include <sys/prctl.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "runtime/tamb/ConsoleLoggerWriter.h"
#include "runtime/tamb/CurrentLoggerWriter.h"

namespace qor::test {

/// The common part of the programs that a test controls: input lines, events, and calls in parallel.
/// Log records go to the standard error stream.
class DrivenProgram {
 public:
  DrivenProgram() {
    // The controlling test may be killed, after it has frozen this program.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    tamb::SetCurrentLoggerWriter(std::make_shared<tamb::ConsoleLoggerWriter>());
  }
  DrivenProgram(const DrivenProgram&) = delete;
  DrivenProgram& operator=(const DrivenProgram&) = delete;
  ~DrivenProgram() { joinCalls(); }

  /// One event, as one line of the standard output. Any thread.
  void say(std::string event) {
    std::replace(event.begin(), event.end(), '\n', ' ');
    const std::lock_guard lock(outputMutex_);
    std::cout << event << std::endl;
  }

  /// Makes the call on its own thread, and prints the result: "NAME returned after MS" or "NAME threw
  /// after MS: TEXT".
  void start(const std::string& name, std::function<void()> call) {
    calls_.emplace_back([this, name, call = std::move(call)] {
      const auto begin = std::chrono::steady_clock::now();
      const auto elapsed = [begin] {
        const auto time = std::chrono::steady_clock::now() - begin;
        return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
      };
      try {
        call();
        say(name + " returned after " + elapsed());
      } catch (const std::exception& error) {
        say(name + " threw after " + elapsed() + ": " + error.what());
      }
    });
  }

  /// Parses a line as the name of a call and its argument, and starts that call.
  void obey(const std::string& line,
            const std::function<void(const std::string&, const std::string&)>& call) {
    std::istringstream words(line);
    std::string name;
    std::string text;
    words >> name;
    std::getline(words >> std::ws, text);
    start(name, [call, name, text] { call(name, text); });
  }

  void joinCalls() {
    for (std::thread& call : calls_) call.join();
    calls_.clear();
  }

  /// Reads the next line; false for "quit". If the standard input ends before that, the test has died, and
  /// the program exits at once.
  static bool nextLine(std::string& line) {
    if (!std::getline(std::cin, line)) std::_Exit(3);
    return line != "quit";
  }

 private:
  std::mutex outputMutex_;
  std::vector<std::thread> calls_;
};

}  // namespace qor::test
