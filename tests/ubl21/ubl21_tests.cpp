// The UBL 2.1 library through its public surface, beside the 2.0 library in the same process:
// every class by its ProgID, documents generated from the 2.1 schemas for every class and member
// read and written (valid against the schema, read back to the same XML), extension content with
// a signature kept as it came, and both libraries' objects used side by side.
#include "../module/script_host.h"
#include "module/catalogue.h"
#include "tivalo/interfaces.h"
#include "tivalo/interfaces21.h"

#include <dlfcn.h>
#include <iconv.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {

using script::Var;
using tivalo::Bstr;
using tivalo::ComPtr;
namespace TypeLibrary = Morvek::Tivalo::TypeLibrary;

// The 2.1 library's own catalogue: both libraries export one, and the program's references bind
// to the 2.0 library's.
const TypeLibrary::CatalogueTable& catalogue21() {
  static const TypeLibrary::CatalogueTable* table = [] {
    void* library = dlopen("libTivaloCOM21.so.1", RTLD_NOW | RTLD_NOLOAD);
    EXPECT_TRUE(library);
    auto entry = reinterpret_cast<const TypeLibrary::CatalogueTable* (*)()>(
        dlsym(library, "TivaloCatalogue"));
    return entry ? entry() : nullptr;
  }();
  return *table;
}

std::wstring wide(const std::string& ascii) { return std::wstring(ascii.begin(), ascii.end()); }

ComPtr<IDispatch> create(const std::wstring& progid) {
  CLSID clsid{};
  EXPECT_EQ(S_OK, CLSIDFromProgID(progid.c_str(), &clsid)) << std::string(progid.begin(), progid.end());
  ComPtr<IDispatch> object;
  EXPECT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                                   object.put_void()));
  return object;
}

// In the "C" locale each character of the XML text is one byte of the document.
Var text_of_bytes(const std::string& bytes) {
  std::wstring text;
  for (char c : bytes) text += wchar_t(static_cast<unsigned char>(c));
  return Var::text(text.c_str());
}

std::string read(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

std::wstring schema21(const std::string& document) {
  return wide(TIVALO_SOURCE_DIR "/schemas/ubl-2.1/xsd/maindoc/UBL-" + document + "-2.1.xsd");
}

TEST(Ubl21Library, EveryClassIsCreatedByItsProgIDsAndNamesItself) {
  const auto& catalogue = catalogue21();
  ASSERT_EQ(303u, catalogue.class_count());
  const TypeLibrary::Class* classes = catalogue.classes();
  int documents = 0;
  for (size_t k = 0; k < catalogue.class_count(); ++k) {
    const TypeLibrary::Class& c = classes[k];
    const std::wstring name = wide(c.progid_name);
    for (const std::wstring& progid : {L"TivaloCOM21." + name, L"TivaloCOM21." + name + L".1"}) {
      CLSID clsid{};
      ASSERT_EQ(S_OK, CLSIDFromProgID(progid.c_str(), &clsid)) << c.progid_name;
      EXPECT_TRUE(IsEqualGUID(clsid, c.clsid)) << c.progid_name;
    }
    ComPtr<IDispatch> object = create(L"TivaloCOM21." + name);
    ASSERT_TRUE(object) << c.progid_name;
    void* typed = nullptr;
    ASSERT_EQ(S_OK, object->QueryInterface(c.iid, &typed)) << c.progid_name;
    static_cast<IUnknown*>(typed)->Release();
    LPOLESTR progid = nullptr;
    ASSERT_EQ(S_OK, ProgIDFromCLSID(c.clsid, &progid));
    EXPECT_EQ(L"TivaloCOM21." + name + L".1", std::wstring(progid));
    CoTaskMemFree(progid);
    documents += c.kind == TypeLibrary::ClassKind::Document;
  }
  EXPECT_EQ(65, documents);
  // The identities follow from the LIBID, as 2.0's do.
  EXPECT_EQ(L"{3691431E-66AD-4637-A22B-6995746519DF}", [&] {
    LPOLESTR text = nullptr;
    StringFromCLSID(classes[0].clsid, &text);
    std::wstring result = text;
    CoTaskMemFree(text);
    return result;
  }());
}

// Every generated document: read, written valid against the 2.1 schema, read back to the same XML.
TEST(Ubl21Library, GeneratedDocumentsRoundTripValid) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(TIVALO_STREAM21_DOCUMENTS)) {
    const std::string name = entry.path().stem().string();
    SCOPED_TRACE(name);
    ComPtr<IDispatch> document = create(L"TivaloCOM21." + wide(name));
    ASSERT_TRUE(document);
    script::put(document.get(), L"XML", text_of_bytes(read(entry.path())));
    const Var written = script::get(document.get(), L"XML");
    ASSERT_FALSE(written.as_text().empty());
    const Var errors = script::call(document.get(), L"GetSchemaValidationErrorsFromXML",
                                    {written, Var::text(schema21(name).c_str())});
    EXPECT_EQ(L"", errors.as_text());

    ComPtr<IDispatch> again = create(L"TivaloCOM21." + wide(name));
    script::put(again.get(), L"XML", written);
    EXPECT_EQ(written.as_text(), script::get(again.get(), L"XML").as_text());
    ++count;
  }
  EXPECT_EQ(65, count);
}

// UTF-8 text in another encoding, by iconv (not the parser's transcoders).
std::string iconv_bytes(std::string utf8, const char* encoding) {
  iconv_t convert = iconv_open(encoding, "UTF-8");
  EXPECT_NE(iconv_t(-1), convert) << encoding;
  std::string out(utf8.size() * 5 + 16, '\0');
  char* in = utf8.data();
  char* to = out.data();
  size_t in_left = utf8.size(), out_left = out.size();
  EXPECT_NE(size_t(-1), iconv(convert, &in, &in_left, &to, &out_left)) << encoding;
  iconv_close(convert);
  out.resize(out.size() - out_left);
  return out;
}

// The document in another encoding, declared as `declared`. UTF-7's declaration stays ASCII, as
// a UTF-7 document's must for a parser to find it.
std::string encoded(std::string utf8, const char* encoding, const std::string& declared) {
  utf8.replace(utf8.find("UTF-8"), 5, declared);
  if (std::string(encoding) != "UTF-7") return iconv_bytes(utf8, encoding);
  const std::size_t body = utf8.find("?>") + 2;
  return utf8.substr(0, body) + iconv_bytes(utf8.substr(body), encoding);
}

std::string description(const script::Call& call) {
  const BSTR text = call.exception.bstrDescription;
  return text ? std::string(text, text + SysStringLen(text)) : std::string();
}

// The 2.1 library reads every encoding the 2.0 library's parser reads: a document in another
// encoding reads to the same objects as in UTF-8, is written back as UTF-8, valid, and reads back
// to the same XML; a fault in it is placed at the line and column it has in the document.
TEST(Ubl21Library, DocumentsInOtherEncodingsRoundTrip) {
  std::string invoice = read(std::string(TIVALO_STREAM21_DOCUMENTS) + "/Invoice.xml");
  // EBCDIC holds Latin-1 only: the other characters as references.
  for (const auto& [character, reference] :
       {std::pair<std::string, std::string>{"\u20AC", "&#x20AC;"}, {"\U0001F600", "&#x1F600;"}})
    for (std::size_t at; (at = invoice.find(character)) != std::string::npos;)
      invoice.replace(at, character.size(), reference);
  std::string faulty = invoice;
  const std::string date = "<cbc:IssueDate> 2024-03-15+01:00 </cbc:IssueDate>";
  faulty.replace(faulty.find(date), date.size(), "<cbc:IssueDate> 2024-02-30 </cbc:IssueDate>");

  const std::filesystem::path directory = std::filesystem::temp_directory_path() / "tivalo-ubl21-encodings";
  std::filesystem::create_directories(directory);
  const auto file_of = [&](const std::string& name, const std::string& bytes) {
    std::ofstream(directory / name, std::ios::binary) << bytes;
    return wide((directory / name).string());
  };
  const auto read_file = [&](IDispatch* document, const std::wstring& file) {
    script::Call call;
    script::invoke(call, document, script::dispid_of(document, L"Read"), DISPATCH_METHOD,
                   {Var::text(file.c_str())});
    return call;
  };
  ComPtr<IDispatch> reference = create(L"TivaloCOM21.Invoice");
  ASSERT_EQ(S_OK, read_file(reference.get(), file_of("utf8.xml", invoice)).hr);
  const std::wstring expected = script::get(reference.get(), L"XML").as_text();
  const script::Call refused = read_file(reference.get(), file_of("utf8-faulty.xml", faulty));
  ASSERT_EQ(DISP_E_EXCEPTION, refused.hr);
  ASSERT_NE(std::string::npos, description(refused).find("Line 53, column 18, cbc:IssueDate"))
      << description(refused);

  const std::pair<const char*, const char*> encodings[] = {
      {"UTF-32", "UTF-32"}, {"UTF-32LE", "UCS-4"}, {"UTF-16BE", "UTF-16"}, {"IBM037", "IBM037"},
      {"UTF-7", "UTF-7"}, {"UTF-16LE", "UTF-16LE"}};
  for (const auto& [encoding, declared] : encodings) {
    SCOPED_TRACE(encoding);
    ComPtr<IDispatch> document = create(L"TivaloCOM21.Invoice");
    const script::Call read = read_file(document.get(), file_of("in.xml", encoded(invoice, encoding, declared)));
    ASSERT_EQ(S_OK, read.hr) << description(read);
    EXPECT_EQ(expected, script::get(document.get(), L"XML").as_text());

    const std::wstring written = wide((directory / "written.xml").string());
    script::call(document.get(), L"Write", {Var::text(written.c_str())});
    EXPECT_EQ(L"", script::call(document.get(), L"GetSchemaValidationErrors",
                                {Var::text(written.c_str()), Var::text(schema21("Invoice").c_str())})
                       .as_text());
    ComPtr<IDispatch> again = create(L"TivaloCOM21.Invoice");
    ASSERT_EQ(S_OK, read_file(again.get(), written).hr);
    EXPECT_EQ(expected, script::get(again.get(), L"XML").as_text());

    const script::Call failed =
        read_file(document.get(), file_of("faulty.xml", encoded(faulty, encoding, declared)));
    EXPECT_EQ(DISP_E_EXCEPTION, failed.hr);
    EXPECT_EQ(description(refused), description(failed));
    EXPECT_EQ(expected, script::get(document.get(), L"XML").as_text());
  }
  std::filesystem::remove_all(directory);
}

// The schema check reads the values as Read does, once the schema finds nothing: a year the schema
// takes but Read refuses is reported in Read's words, by every check, file and text alike.
TEST(Ubl21Library, TheSchemaCheckRefusesWhatReadRefuses) {
  ComPtr<IDispatch> document = create(L"TivaloCOM21.Invoice");
  script::put(document.get(), L"XML",
              text_of_bytes(read(std::string(TIVALO_STREAM21_DOCUMENTS) + "/Invoice.xml")));
  std::wstring text = script::get(document.get(), L"XML").as_text();
  const std::wstring date = L"<cbc:IssueDate>2024-03-15</cbc:IssueDate>";
  ASSERT_NE(std::wstring::npos, text.find(date));
  text.replace(text.find(date), date.size(), L"<cbc:IssueDate>12345-01-01</cbc:IssueDate>");
  const std::filesystem::path file = std::filesystem::temp_directory_path() / "tivalo-ubl21-year.xml";
  std::ofstream(file, std::ios::binary) << std::string(text.begin(), text.end());
  const std::wstring path = wide(file.string());

  script::Call refused;
  script::invoke(refused, document.get(), script::dispid_of(document.get(), L"Read"),
                 DISPATCH_METHOD, {Var::text(path.c_str())});
  ASSERT_EQ(DISP_E_EXCEPTION, refused.hr);
  const std::wstring said = refused.exception.bstrDescription;
  EXPECT_NE(std::wstring::npos, said.find(L"cbc:IssueDate: the value '12345-01-01' is not a date"))
      << std::string(said.begin(), said.end());
  const std::wstring schema = schema21("Invoice");
  // The combined check runs no stylesheet over a document its schema check reports.
  const std::wstring stylesheet = L"never-run.xsl";
  EXPECT_EQ(said, script::call(document.get(), L"GetSchemaValidationErrors",
                               {Var::text(path.c_str()), Var::text(schema.c_str())})
                      .as_text());
  EXPECT_EQ(said, script::call(document.get(), L"GetSchemaValidationErrorsFromXML",
                               {Var::text(text.c_str()), Var::text(schema.c_str())})
                      .as_text());
  EXPECT_EQ(said, script::call(document.get(), L"GetValidationErrors",
                               {Var::text(path.c_str()), Var::text(schema.c_str()),
                                Var::text(stylesheet.c_str())})
                      .as_text());
  std::filesystem::remove(file);
}

TEST(Ubl21Library, ExtensionContentWithASignatureIsWrittenAsItWasRead) {
  const std::string invoice = read(std::string(TIVALO_STREAM21_DOCUMENTS) + "/Invoice.xml");
  ComPtr<IDispatch> document = create(L"TivaloCOM21.Invoice");
  script::put(document.get(), L"XML", text_of_bytes(invoice));
  const std::wstring written = script::get(document.get(), L"XML").as_text();
  for (const wchar_t* kept :
       {L"<sig:UBLDocumentSignatures xmlns:sig=\"urn:oasis:names:specification:ubl:schema:xsd:"
        L"CommonSignatureComponents-2\"",
        L"<ds:Signature xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\" Id=\"signature-1\">",
        L"<ds:DigestValue>q83vEjRWeJA=</ds:DigestValue>", L"c2ln\nbmF0dXJl",
        L"<sbc:ReferencedSignatureID>", L"x &amp; y<![CDATA[ <raw> ]]>", L"<?pi some data?>"})
    EXPECT_NE(std::wstring::npos, written.find(kept)) << std::string(kept, kept + wcslen(kept));

  // Through the object model: the extension is there, its content is not a member.
  ComPtr<IDispatch> extensions = script::get_object(document.get(), L"UBLExtensions");
  EXPECT_EQ(2, script::get(extensions.get(), L"UBLExtensionCount").lVal);

  // An extension content holding two elements cannot be kept whole: the read fails and the
  // document keeps what it had.
  std::string two = invoice;
  const std::string end = "</sig:UBLDocumentSignatures>";
  two.insert(two.find(end) + end.size(), "<other xmlns=\"urn:x\"/>");
  script::Call failed;
  script::invoke(failed, document.get(), script::dispid_of(document.get(), L"XML"),
                 DISPATCH_PROPERTYPUT, {text_of_bytes(two)});
  EXPECT_EQ(DISP_E_EXCEPTION, failed.hr);
  EXPECT_EQ(written, script::get(document.get(), L"XML").as_text());
}

TEST(Ubl21Library, BothLibrariesInOneProgram) {
  // Early-bound, each library's own interfaces and GUIDs side by side.
  ComPtr<IInvoice> invoice20;
  ASSERT_EQ(S_OK, CoCreateInstance(CLSID_Invoice, nullptr, CLSCTX_INPROC_SERVER, IID_IInvoice,
                                   invoice20.put_void()));
  ComPtr<TivaloCOM21::IInvoice> invoice21;
  ASSERT_EQ(S_OK, CoCreateInstance(TivaloCOM21::CLSID_Invoice, nullptr, CLSCTX_INPROC_SERVER,
                                   TivaloCOM21::IID_IInvoice, invoice21.put_void()));
  EXPECT_FALSE(IsEqualGUID(CLSID_Invoice, TivaloCOM21::CLSID_Invoice));

  ComPtr<TivaloCOM21::IIdentifier> id;
  ASSERT_EQ(S_OK, invoice21->get_ID(id.put()));
  Bstr value(L"INV-21");
  ASSERT_EQ(S_OK, id->put_Value(value.get()));
  ComPtr<TivaloCOM21::ICode> type;
  ASSERT_EQ(S_OK, invoice21->get_InvoiceTypeCode(type.put()));  // new in 2.1
  ASSERT_EQ(S_OK, type->put_Value(Bstr(L"380").get()));
  Bstr xml21;
  ASSERT_EQ(S_OK, invoice21->get_XML(xml21.put()));
  const std::wstring text21 = xml21.get();
  EXPECT_NE(std::wstring::npos, text21.find(L"<cbc:ID>INV-21</cbc:ID>"));
  EXPECT_NE(std::wstring::npos, text21.find(L"<cbc:InvoiceTypeCode>380</cbc:InvoiceTypeCode>"));
  // The check is real: an invoice without lines is not a valid 2.1 invoice.
  Bstr errors;
  ASSERT_EQ(S_OK, invoice21->GetSchemaValidationErrorsFromXML(
                      xml21.get(), Bstr(schema21("Invoice")).get(), errors.put()));
  EXPECT_NE(std::wstring::npos, std::wstring(errors.get()).find(L"InvoiceLine"));

  // A 2.1 object is not a 2.0 one: late binding refuses to put it into a 2.0 document.
  ComPtr<IDispatch> dispatch20;
  ASSERT_EQ(S_OK, invoice20->QueryInterface(IID_IDispatch, dispatch20.put_void()));
  script::Call call;
  script::invoke(call, dispatch20.get(), script::dispid_of(dispatch20.get(), L"ID"),
                 DISPATCH_PROPERTYPUT, {Var::object(id.get())});
  EXPECT_NE(S_OK, call.hr);

  // Failures of the 2.1 library report through the one runtime's error information.
  SetErrorInfo(0, nullptr);
  EXPECT_EQ(DISP_E_EXCEPTION, invoice21->put_XML(Bstr(L"<Invoice").get()));
  ComPtr<IErrorInfo> info;
  ASSERT_EQ(S_OK, GetErrorInfo(0, info.put()));
  Bstr source;
  info->GetSource(source.put());
  EXPECT_EQ(std::wstring(L"TivaloCOM21.Invoice.1"), source.get());
}

}  // namespace
