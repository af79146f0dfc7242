#include "model/xml_platform.h"

#include <xercesc/util/PlatformUtils.hpp>

#include <mutex>

namespace Morvek::Tivalo {
namespace {

std::once_flag started;

// Destroyed when the module unloads (or the process ends), after the last document operation.
struct Platform {
  bool up = false;
  ~Platform() {
    if (up) xercesc::XMLPlatformUtils::Terminate();
  }
} platform;

}  // namespace

void start_xml_platform() {
  std::call_once(started, [] {
    xercesc::XMLPlatformUtils::Initialize();
    platform.up = true;
  });
}

}  // namespace Morvek::Tivalo
