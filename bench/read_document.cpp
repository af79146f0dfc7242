// Reads one Invoice file into the object model and exits; scripts/bench measures its peak memory.
#include "platform/automation.h"
#include "tivalo/interfaces.h"

#include <string>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  tivalo::ComPtr<IInvoice> invoice;
  CoCreateInstance(CLSID_Invoice, nullptr, CLSCTX_INPROC_SERVER, IID_IInvoice, invoice.put_void());
  const std::string path = argv[1];
  return invoice->Read(tivalo::Bstr(std::wstring(path.begin(), path.end())).get()) == S_OK ? 0 : 1;
}
