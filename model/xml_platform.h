// The XML parser platform is started once for the process, on first use, and stopped when the
// module unloads. Documents on different threads never start or stop it under each other, and no
// call pays for starting it again.
#pragma once

namespace Morvek::Tivalo {

// Starts the platform unless it is up already. Safe from any thread.
void start_xml_platform();

// Held for an operation that makes or destroys DOM nodes: makes sure the platform is up.
struct XmlPlatformInUse {
  XmlPlatformInUse() { start_xml_platform(); }
};

}  // namespace Morvek::Tivalo
