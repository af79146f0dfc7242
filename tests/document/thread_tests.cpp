// Documents on different threads at the same time: each thread makes its own objects and reads,
// writes, gets and puts XML and runs the schema and rule checks. Run under ThreadSanitizer too.
#include "document_testing.h"

#include <atomic>
#include <thread>
#include <vector>

using namespace document_testing;

namespace {

class Threads : public TempDirectory {};

TEST_F(Threads, DocumentsOnDifferentThreadsWorkAtTheSameTime) {
  const std::wstring rules = write_file(
      "rules.xsl",
      "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">"
      "<xsl:template match=\"/\"><xsl:message>checked <xsl:value-of select=\"name(*)\"/>"
      "</xsl:message></xsl:template></xsl:stylesheet>\n");
  const Bstr schema(schema_of(L"Invoice"));
  constexpr int thread_count = 4, rounds = 6;
  std::atomic<int> failures{0};
  auto work = [&](int t) {
    auto check = [&](bool ok) {
      if (!ok) ++failures;
    };
    for (int round = 0; round < rounds; ++round) {
      const std::string id = "T" + std::to_string(t) + "R" + std::to_string(round);
      auto invoice = create<IInvoice>(CLSID_Invoice);
      check(invoice->put_XML(string_of_bytes(valid_invoice(id)).get()) == S_OK);
      Bstr xml;
      check(invoice->get_XML(xml.put()) == S_OK);
      check(bytes_of(xml).find("<cbc:ID>" + id + "</cbc:ID>") != std::string::npos);

      const Bstr file(path(id + ".xml"));
      check(invoice->Write(file.get()) == S_OK);
      auto again = create<IInvoice>(CLSID_Invoice);
      check(again->Read(file.get()) == S_OK);
      Bstr xml_again;
      check(again->get_XML(xml_again.put()) == S_OK);
      check(text(xml) == text(xml_again));

      Bstr errors;
      check(again->GetSchemaValidationErrorsFromXML(xml.get(), schema.get(), errors.put()) ==
            S_OK);
      check(!errors.get());
      Bstr messages;
      check(again->GetValueValidationErrors(file.get(), Bstr(rules).get(), messages.put()) ==
            S_OK);
      check(text(messages) == L"checked Invoice");
    }
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < thread_count; ++t) threads.emplace_back(work, t);
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(0, failures.load());
}

}  // namespace
