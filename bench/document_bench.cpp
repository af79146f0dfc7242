// Throughput of the everyday paths: reading and writing a document, accessor calls early and late
// bound, and schema validation. Run: build/bench/tivalo_bench
#include "platform/automation.h"
#include "tivalo/interfaces.h"

#include <benchmark/benchmark.h>

using tivalo::Bstr;
using tivalo::ComPtr;

namespace {

const Bstr sample(TIVALO_SOURCE_DIR L"/samples/invoice.xml");
const Bstr invoice_schema(TIVALO_SCHEMA_DIR L"/maindoc/UBL-Invoice-2.0.xsd");

ComPtr<IInvoice> new_invoice() {
  ComPtr<IInvoice> invoice;
  CoCreateInstance(CLSID_Invoice, nullptr, CLSCTX_INPROC_SERVER, IID_IInvoice, invoice.put_void());
  return invoice;
}

void ReadSampleInvoice(benchmark::State& state) {
  auto invoice = new_invoice();
  for (auto _ : state) {
    if (invoice->Read(sample.get()) != S_OK) state.SkipWithError("Read failed");
  }
}
BENCHMARK(ReadSampleInvoice);

void GetXmlOfSampleInvoice(benchmark::State& state) {
  auto invoice = new_invoice();
  invoice->Read(sample.get());
  for (auto _ : state) {
    Bstr xml;
    invoice->get_XML(xml.put());
    benchmark::DoNotOptimize(xml.get());
  }
}
BENCHMARK(GetXmlOfSampleInvoice);

void CreateInvoiceObject(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(new_invoice());
}
BENCHMARK(CreateInvoiceObject);

void EarlyBoundPropertyGet(benchmark::State& state) {
  auto invoice = new_invoice();
  for (auto _ : state) {
    ComPtr<IIdentifier> id;
    invoice->get_ID(id.put());
    benchmark::DoNotOptimize(id.get());
  }
}
BENCHMARK(EarlyBoundPropertyGet);

void LateBoundPropertyGetByName(benchmark::State& state) {
  auto invoice = new_invoice();
  Bstr name(L"invoicelinecount");
  for (auto _ : state) {
    LPOLESTR names[] = {name.get()};
    DISPID id = 0;
    invoice->GetIDsOfNames(IID_NULL, names, 1, 0, &id);
    DISPPARAMS none{};
    VARIANT result;
    VariantInit(&result);
    invoice->Invoke(id, IID_NULL, 0, DISPATCH_PROPERTYGET, &none, &result, nullptr, nullptr);
    benchmark::DoNotOptimize(result.lVal);
  }
}
BENCHMARK(LateBoundPropertyGetByName);

void SchemaValidationOfSampleInvoice(benchmark::State& state) {
  auto invoice = new_invoice();
  for (auto _ : state) {
    Bstr errors;
    invoice->GetSchemaValidationErrors(sample.get(), invoice_schema.get(), errors.put());
    if (errors.get()) state.SkipWithError("sample is not valid");
  }
}
BENCHMARK(SchemaValidationOfSampleInvoice)->Unit(benchmark::kMillisecond);

}  // namespace
