#include <atomic>

#include "platform/automation.h"

namespace {
std::atomic<tivalo_invalid_parameter_handler> installedHandler{nullptr};
}

tivalo_invalid_parameter_handler _set_invalid_parameter_handler(tivalo_invalid_parameter_handler handler) {
  return installedHandler.exchange(handler);
}

tivalo_invalid_parameter_handler _get_invalid_parameter_handler() { return installedHandler.load(); }
