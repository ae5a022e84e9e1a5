#include "runtime/tamb/CurrentException.h"

#include <exception>

namespace tamb {

std::string CurrentExceptionText() {
  try {
    throw;
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "an exception that is not a std::exception";
  }
}

}  // namespace tamb
