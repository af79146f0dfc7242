// The slot a pure virtual function leaves in a virtual table. Every interface's table is emitted
// in the library with thousands of such slots; with the handler defined here they are bound when
// the library is linked, not looked up by the dynamic loader at every start.
#include <cstdlib>

extern "C" __attribute__((visibility("hidden"))) void __cxa_pure_virtual() { std::abort(); }
