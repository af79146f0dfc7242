// Reads one Invoice file into the object model and prints how much memory the model it leaves
// takes and how much the Read took at its peak, both above what the process held before it:
// model_kb=... read_peak_kb=...
#include "platform/automation.h"
#include "tivalo/interfaces.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

long resident_kb() {
  long pages = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

long peak_kb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  tivalo::ComPtr<IInvoice> invoice;
  CoCreateInstance(CLSID_Invoice, nullptr, CLSCTX_INPROC_SERVER, IID_IInvoice, invoice.put_void());
  // A first small Read starts the parsers, so that only the document's own cost is measured.
  invoice->Read(tivalo::Bstr(L"/dev/null").get());
  const long before = resident_kb();
  const std::string path = argv[1];
  if (invoice->Read(tivalo::Bstr(std::wstring(path.begin(), path.end())).get()) != S_OK) return 1;
  std::printf("model_kb=%ld read_peak_kb=%ld\n", resident_kb() - before, peak_kb() - before);
  return 0;
}
