// The streaming writer against its oracle, the store step with the binding's DOM serializer: every
// document of the corpus, and documents that fill every member of every class with values of every
// shape, are written both ways and must give the same bytes, or the same failure report.
#include "document/streams.h"
#include "document_testing.h"
#include "module/catalogue.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <set>
#include <sstream>
#include <vector>

using namespace document_testing;
namespace catalogue = Morvek::Tivalo::TypeLibrary;
using Morvek::Tivalo::Documents::use_binding_writer;

namespace {

// ---- Late binding over the catalogue -------------------------------------------------------------

const catalogue::Member* member_named(const catalogue::Class& cls, std::string_view name,
                                      catalogue::MemberKind kind) {
  for (uint16_t i = 0; i < cls.member_count; ++i)
    if (cls.members[i].name == name && cls.members[i].kind == kind) return &cls.members[i];
  return nullptr;
}

// Invokes a member with the arguments in call order; the result, if any, lands in `result`.
HRESULT invoke(IDispatch* object, const catalogue::Member& member, std::vector<VARIANT> args,
               VARIANT* result = nullptr) {
  std::reverse(args.begin(), args.end());  // DISPPARAMS hold the arguments last first
  DISPID named = DISPID_PROPERTYPUT;
  DISPPARAMS params{args.data(), nullptr, UINT(args.size()), 0};
  WORD flags = DISPATCH_METHOD;
  if (member.kind == catalogue::MemberKind::PropGet) flags = DISPATCH_PROPERTYGET;
  if (member.kind == catalogue::MemberKind::PropPut) {
    flags = DISPATCH_PROPERTYPUT;
    params.rgdispidNamedArgs = &named;
    params.cNamedArgs = 1;
  }
  VARIANT ignored;
  VariantInit(&ignored);
  const HRESULT hr = object->Invoke(member.dispid, IID_NULL, 0, flags, &params,
                                    result ? result : &ignored, nullptr, nullptr);
  VariantClear(&ignored);
  return hr;
}

ComPtr<IDispatch> create_dispatch(const catalogue::Class& cls) {
  ComPtr<IDispatch> object;
  EXPECT_EQ(S_OK, CoCreateInstance(cls.clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                                   object.put_void()));
  return object;
}

// What one writer made of a document: the text of XML get, or the failure report.
struct Written {
  HRESULT status;
  std::string bytes;
  std::wstring error;
  bool operator==(const Written& o) const {
    return status == o.status && bytes == o.bytes && error == o.error;
  }
};

Written xml_of(IDispatch* document, const catalogue::Class& cls, bool through_binding) {
  use_binding_writer(through_binding);
  VARIANT result;
  VariantInit(&result);
  Written written{invoke(document, *member_named(cls, "XML", catalogue::MemberKind::PropGet), {},
                         &result),
                  {}, {}};
  use_binding_writer(false);
  if (result.vt == VT_BSTR) written.bytes = bytes_of(Bstr::attach(result.bstrVal));
  else VariantClear(&result);
  if (FAILED(written.status)) written.error = take_error_report().description;
  return written;
}

// The same bytes or the same failure both ways; returns the streaming writer's result.
Written expect_same_both_ways(IDispatch* document, const catalogue::Class& cls,
                              const std::string& what) {
  const Written oracle = xml_of(document, cls, true);
  const Written streamed = xml_of(document, cls, false);
  EXPECT_EQ(oracle.status, streamed.status) << what;
  EXPECT_EQ(oracle.error, streamed.error) << what;
  if (oracle.bytes != streamed.bytes) {
    size_t at = 0;
    while (at < oracle.bytes.size() && at < streamed.bytes.size() &&
           oracle.bytes[at] == streamed.bytes[at])
      ++at;
    const size_t from = at > 80 ? at - 80 : 0;
    ADD_FAILURE() << what << ": the bytes differ at " << at << "\n binding: "
                  << oracle.bytes.substr(from, 160) << "\n streamed: "
                  << streamed.bytes.substr(from, 160);
  }
  return streamed;
}

const catalogue::Class* document_class(std::string_view name) {
  const catalogue::Class* cls = catalogue::find_class_by_name(name);
  return cls && cls->kind == catalogue::ClassKind::Document ? cls : nullptr;
}

// The local name of a text's first element, or empty.
std::string root_name(const std::string& text) {
  for (size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at + 1)) {
    if (at + 1 >= text.size() || !std::isalpha(static_cast<unsigned char>(text[at + 1]))) continue;
    const size_t end = text.find_first_of(" \t\r\n/>", at);
    std::string name = text.substr(at + 1, end - at - 1);
    return name.substr(name.find(':') == std::string::npos ? 0 : name.find(':') + 1);
  }
  return {};
}

// ---- Values of every shape ---------------------------------------------------------------------

// Each value list is walked round-robin, so that every document meets every shape somewhere.
class Values {
 public:
  VARIANT next(catalogue::ParamType type) {
    VARIANT v;
    VariantInit(&v);
    switch (type) {
      case catalogue::ParamType::Bstr: {
        const std::wstring& text = texts_[count_++ % texts_.size()];
        v.vt = VT_BSTR;
        v.bstrVal = SysAllocStringLen(text.data(), UINT(text.size()));
        break;
      }
      case catalogue::ParamType::Date:
        v.vt = VT_DATE;
        v.date = dates_[count_++ % std::size(dates_)];
        break;
      case catalogue::ParamType::Double:
        v.vt = VT_R8;
        v.dblVal = numbers_[count_++ % std::size(numbers_)];
        break;
      case catalogue::ParamType::Bool:
        v.vt = VT_BOOL;
        v.boolVal = indicators_[count_++ % std::size(indicators_)];
        break;
      case catalogue::ParamType::Variant: {
        const size_t size = byte_counts_[count_++ % std::size(byte_counts_)];
        SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, ULONG(size));
        void* data = nullptr;
        SafeArrayAccessData(array, &data);
        for (size_t i = 0; i < size; ++i) static_cast<unsigned char*>(data)[i] = (i * 37 + 11) & 0xFF;
        SafeArrayUnaccessData(array);
        v.vt = VT_ARRAY | VT_UI1;
        v.parray = array;
        break;
      }
      default:
        break;
    }
    return v;
  }

 private:
  size_t count_ = 0;
  const std::vector<std::wstring> texts_{
      L"plain", L"", L"a<b&c>d\"e'f", L"line\r\nnext\ttab", L"  \n    ", L"\n", L" ",
      L"Stra\u00DFe \u20AC", L"\U0001F600 astral", std::wstring{wchar_t(0xD83D), wchar_t(0xDE00)},
      L"]]> and --", L"\r",
      L"trailing   \n  "};
  static constexpr double dates_[] = {43832.0, 43832.75, 0.0, 2.5, -1.25, 36526.9999999,
                                      2958465.0, 657434.0};
  static constexpr double numbers_[] = {0.0, -0.0, 19.6, 1e-7, 12345678901234567890.0, -3.25,
                                        1e300, 5e-324, 100.5, 7.0};
  static constexpr VARIANT_BOOL indicators_[] = {VARIANT_TRUE, VARIANT_FALSE, 1};
  static constexpr size_t byte_counts_[] = {0, 1, 2, 3, 45, 46, 100};
};

// Fills every member of an object: values put, single children read (which creates them) and
// filled, two items added to every list. Each class is filled once per document; later objects
// of a class already filled stay as created, which keeps the document finite.
void fill(IDispatch* object, const catalogue::Class& cls, Values& values,
          std::set<int>& filled) {
  if (!filled.insert(cls.k).second && cls.kind != catalogue::ClassKind::DataType) return;
  for (uint16_t i = 0; i < cls.member_count; ++i) {
    const catalogue::Member& member = cls.members[i];
    const std::string_view name = member.name;
    if (cls.kind == catalogue::ClassKind::Document && (name == "XML")) continue;
    if (member.kind == catalogue::MemberKind::PropPut &&
        member.params[0].type != catalogue::ParamType::Object) {
      VARIANT value = values.next(member.params[0].type);
      EXPECT_EQ(S_OK, invoke(object, member, {value})) << cls.name << "." << name;
      VariantClear(&value);
    } else if (member.kind == catalogue::MemberKind::PropGet && member.param_count == 1 &&
               member.params[0].type == catalogue::ParamType::Object) {
      VARIANT child;
      VariantInit(&child);
      ASSERT_EQ(S_OK, invoke(object, member, {}, &child)) << cls.name << "." << name;
      fill(child.pdispVal, catalogue::classes()[member.params[0].object_class], values, filled);
      VariantClear(&child);
    } else if (member.kind == catalogue::MemberKind::Method && name.substr(0, 3) == "add") {
      const catalogue::Class& item_class = catalogue::classes()[member.params[0].object_class];
      for (int item = 0; item < 2; ++item) {
        ComPtr<IDispatch> child = create_dispatch(item_class);
        fill(child.get(), item_class, values, filled);
        VARIANT argument;
        VariantInit(&argument);
        argument.vt = VT_DISPATCH;
        argument.pdispVal = child.get();
        EXPECT_EQ(S_OK, invoke(object, member, {argument})) << cls.name << "." << name;
      }
    }
  }
}

std::vector<const catalogue::Class*> document_classes() {
  std::vector<const catalogue::Class*> documents;
  for (size_t k = 0; k < catalogue::class_count(); ++k)
    if (catalogue::classes()[k].kind == catalogue::ClassKind::Document)
      documents.push_back(&catalogue::classes()[k]);
  return documents;
}

std::string read_bytes(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

class StreamingWriter : public TempDirectory {
 protected:
  // A document read from `text` by the class its root names; null when it does not read.
  ComPtr<IDispatch> read(const std::string& text, const catalogue::Class*& cls) {
    cls = document_class(root_name(text));
    if (!cls) return {};
    ComPtr<IDispatch> document = create_dispatch(*cls);
    VARIANT file;
    VariantInit(&file);
    file.vt = VT_BSTR;
    file.bstrVal = SysAllocString(write_file("in.xml", text).c_str());
    const HRESULT hr = invoke(document.get(), *member_named(*cls, "Read", catalogue::MemberKind::Method),
                              {file});
    VariantClear(&file);
    take_error_report();
    return SUCCEEDED(hr) ? document : ComPtr<IDispatch>();
  }
};

// ---- The corpus ----------------------------------------------------------------------------------

TEST_F(StreamingWriter, EveryDocumentOfTheCorpusIsWrittenAsTheBindingWritesIt) {
  int compared = 0;
  for (const char* directory : {"samples", "tests"}) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(
             std::filesystem::path(TIVALO_SOURCE_DIR) / directory)) {
      if (entry.path().extension() != ".xml") continue;
      const catalogue::Class* cls = nullptr;
      ComPtr<IDispatch> document = read(read_bytes(entry.path()), cls);
      if (!document) continue;
      expect_same_both_ways(document.get(), *cls, entry.path().string());
      ++compared;
    }
  }
  EXPECT_GE(compared, 10);
}

// Extension content is DOM nodes written node by node: namespaces declared where the serializer
// declares them, comments, processing instructions, CDATA, whitespace that shifts indentation.
TEST_F(StreamingWriter, ExtensionContentOfEveryKindIsWrittenAsTheBindingWritesIt) {
  const std::string extension =
      "<ext:UBLExtensions xmlns:ext=\"urn:oasis:names:specification:ubl:schema:xsd:"
      "CommonExtensionComponents-2\">"
      "<ext:UBLExtension><cbc:ID>E1</cbc:ID><ext:ExtensionContent>\n"
      "      <my:Root xmlns:my=\"urn:example:my\" xmlns=\"urn:example:default\" b=\"2\" a=\"x&amp;&lt;&quot;&#10;&#9;&#13;y\""
      " xmlns:other=\"urn:example:other\" other:attr=\"o\" xml:lang=\"en\">\n"
      "        <!-- a comment among elements -->\n"
      "        <Plain>text &amp; more &gt; &#13; \xC3\xA9 \xF0\x9F\x98\x80</Plain>\n"
      "        <my:Empty/>\n"
      "        <NoNamespace xmlns=\"\"><Inner xmlns=\"\">deep</Inner></NoNamespace>\n"
      "        <?target some data?>\n"
      "        <Data><![CDATA[<raw> & ]]></Data>\n"
      "        <Mixed>before<b>bold</b>after<!--inline--></Mixed>\n"
      "        <third:Elem xmlns:third=\"urn:example:third\" xsi:type=\"x\" "
      "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"/>\n"
      "      <Unindented/>"
      "</my:Root>\n"
      "    </ext:ExtensionContent></ext:UBLExtension>"
      "<ext:UBLExtension><ext:ExtensionContent/></ext:UBLExtension>"
      "<ext:UBLExtension><ext:ExtensionContent><a:Only xmlns:a=\"urn:a\">\r\n\t<a:Child/>  </a:Only>"
      "</ext:ExtensionContent></ext:UBLExtension>"
      "</ext:UBLExtensions>\n";
  const std::string text = ubl_document("Invoice", extension + valid_invoice_body());
  const catalogue::Class* cls = nullptr;
  ComPtr<IDispatch> document = read(text, cls);
  ASSERT_TRUE(document);
  const Written written = expect_same_both_ways(document.get(), *cls, "extension content");
  EXPECT_NE(std::string::npos, written.bytes.find("<![CDATA[<raw> & ]]>")) << written.bytes;

  // XML 1.1 lets a document carry control characters that XML 1.0, and so the writer, refuses.
  for (const std::string& content :
       {std::string("<x:A xmlns:x=\"urn:x\">a&#1;b</x:A>"),
        std::string("<x:A xmlns:x=\"urn:x\" at=\"&#2;\"><x:B>ok</x:B></x:A>")}) {
    const std::string xml10 = ubl_document(
        "Invoice",
        "<ext:UBLExtensions xmlns:ext=\"urn:oasis:names:specification:ubl:schema:xsd:"
        "CommonExtensionComponents-2\"><ext:UBLExtension><ext:ExtensionContent>" + content +
            "</ext:ExtensionContent></ext:UBLExtension></ext:UBLExtensions>" +
            valid_invoice_body("a&#3;b"));
    const std::string xml11 = "<?xml version=\"1.1\"" + xml10.substr(xml10.find(" encoding"));
    ComPtr<IDispatch> refused = read(xml11, cls);
    ASSERT_TRUE(refused);
    EXPECT_EQ(DISP_E_EXCEPTION, expect_same_both_ways(refused.get(), *cls, content).status);
  }
}

// ---- Generated documents -------------------------------------------------------------------------

TEST_F(StreamingWriter, EveryMemberOfEveryClassFilledWithValuesOfEveryShape) {
  Values values;
  std::set<int> classes_met;
  for (const catalogue::Class* cls : document_classes()) {
    ComPtr<IDispatch> document = create_dispatch(*cls);
    std::set<int> filled;
    fill(document.get(), *cls, values, filled);
    classes_met.insert(filled.begin(), filled.end());
    const Written written = expect_same_both_ways(document.get(), *cls, cls->name);
    EXPECT_EQ(S_OK, written.status) << cls->name << ": " << std::string(written.error.begin(), written.error.end());
  }
  EXPECT_EQ(catalogue::class_count(), classes_met.size());

  // A new document of each class, as created: required children empty, dates at DATE 0.
  for (const catalogue::Class* cls : document_classes())
    expect_same_both_ways(create_dispatch(*cls).get(), *cls, std::string("new ") + cls->name);
}

TEST_F(StreamingWriter, WriteGivesTheFileXmlGives) {
  const catalogue::Class* cls = nullptr;
  ComPtr<IDispatch> document = read(read_bytes(std::filesystem::path(TIVALO_SOURCE_DIR) / "samples/invoice.xml"), cls);
  ASSERT_TRUE(document);
  for (bool through_binding : {true, false}) {
    use_binding_writer(through_binding);
    VARIANT file;
    VariantInit(&file);
    file.vt = VT_BSTR;
    file.bstrVal = SysAllocString(path(through_binding ? "binding.xml" : "streamed.xml").c_str());
    EXPECT_EQ(S_OK, invoke(document.get(), *member_named(*cls, "Write", catalogue::MemberKind::Method), {file}));
    VariantClear(&file);
  }
  use_binding_writer(false);
  EXPECT_EQ(read_file("binding.xml"), read_file("streamed.xml"));

  // What the streaming writer writes still satisfies the schema.
  ComPtr<IInvoice> invoice;
  ASSERT_EQ(S_OK, document->QueryInterface(IID_IInvoice, invoice.put_void()));
  Bstr errors;
  ASSERT_EQ(S_OK, invoice->GetSchemaValidationErrors(path_bstr("streamed.xml").get(),
                                                     Bstr(schema_of(L"Invoice")).get(),
                                                     errors.put()));
  EXPECT_EQ(L"", text(errors));
}

// ---- Refusals ------------------------------------------------------------------------------------

// An object of another implementation. The object model only ever asks a child for interfaces
// before writing it, so an IUnknown standing in for an IIdentifier is enough.
class ForeignObject : public IUnknown {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    *out = nullptr;
    if (iid != IID_IUnknown && iid != IID_IIdentifier) return E_NOINTERFACE;
    *out = static_cast<IUnknown*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --references_;
    if (!left) delete this;
    return left;
  }

 private:
  ULONG references_ = 1;
};

TEST_F(StreamingWriter, RefusalsGiveTheSameMessagesInTheSameOrder) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  const catalogue::Class& cls = *document_class("Invoice");
  struct Case {
    const char* name;
    std::function<void(IInvoice*)> spoil;
  };
  auto id_value = [](IInvoice* invoice, const std::wstring& value) {
    ComPtr<IIdentifier> id;
    ASSERT_EQ(S_OK, invoice->get_ID(id.put()));
    ASSERT_EQ(S_OK, id->put_Value(Bstr(value).get()));
  };
  auto payable = [](IInvoice* invoice) {
    ComPtr<IMonetaryTotal> total;
    ComPtr<IAmount> amount;
    EXPECT_EQ(S_OK, invoice->get_LegalMonetaryTotal(total.put()));
    EXPECT_EQ(S_OK, total->get_PayableAmount(amount.put()));
    return amount;
  };
  auto party = [](IInvoice* invoice) {
    ComPtr<ISupplierParty> supplier;
    ComPtr<IParty> result;
    EXPECT_EQ(S_OK, invoice->get_AccountingSupplierParty(supplier.put()));
    EXPECT_EQ(S_OK, supplier->get_Party(result.put()));
    return result;
  };
  const Case cases[] = {
      {"control character", [&](IInvoice* i) { id_value(i, L"a\x01" L"b"); }},
      {"lone high surrogate", [&](IInvoice* i) { id_value(i, std::wstring{wchar_t(0xD800), L'z'}); }},
      {"lone low surrogate", [&](IInvoice* i) { id_value(i, std::wstring(1, wchar_t(0xDC00))); }},
      {"high surrogate at the end", [&](IInvoice* i) { id_value(i, std::wstring(1, wchar_t(0xDBFF))); }},
      {"U+FFFE", [&](IInvoice* i) { id_value(i, L"x\xFFFE"); }},
      {"code units beyond Unicode", [&](IInvoice* i) {
         // Only where wchar_t has 32 bits; elsewhere these are plain UTF-16 units.
         id_value(i, std::wstring{wchar_t(0x110000), wchar_t(0x7FFFFFFF)});
       }},
      {"negative code unit", [&](IInvoice* i) { id_value(i, std::wstring{L'a', wchar_t(-1), L'b'}); }},
      {"attribute", [&](IInvoice* i) { payable(i)->put_CurrencyID(Bstr(L"E\x02R").get()); }},
      {"NaN amount", [&](IInvoice* i) { payable(i)->put_Value(nan); }},
      {"infinite amount", [&](IInvoice* i) { payable(i)->put_Value(infinity); }},
      {"negative infinity", [&](IInvoice* i) { payable(i)->put_Value(-infinity); }},
      {"character before a NaN", [&](IInvoice* i) {
         id_value(i, L"\x03");
         payable(i)->put_Value(nan);
       }},
      {"date out of range", [&](IInvoice* i) { i->put_IssueDate(3e6); }},
      {"NaN date", [&](IInvoice* i) { i->put_IssueDate(nan); }},
      {"NaN before a bad date", [&](IInvoice* i) {
         id_value(i, L"\x03");
         payable(i)->put_Value(nan);
         i->put_TaxPointDate(-1e6);
       }},
      {"cycle after a NaN", [&](IInvoice* i) {
         ComPtr<IAllowanceCharge> charge = create<IAllowanceCharge>(CLSID_AllowanceCharge);
         charge->put_MultiplierFactorNumeric(nan);
         i->addAllowanceCharge(charge.get());
         ComPtr<IParty> p = party(i);
         p->put_AgentParty(p.get());
       }},
      {"too deep", [&](IInvoice* i) {
         ComPtr<IParty> p = party(i);
         for (int n = 0; n < 1100; ++n) {
           ComPtr<IParty> agent;
           p->get_AgentParty(agent.put());
           p = agent;
         }
       }},
      {"NUL in a text", [&](IInvoice* i) { id_value(i, std::wstring(L"ab\0cd", 5)); }},
      {"NUL after a control character", [&](IInvoice* i) { id_value(i, std::wstring(L"\x02\0", 2)); }},
      {"NUL in an attribute before a character in the text", [&](IInvoice* i) {
         payable(i)->put_CurrencyID(Bstr(std::wstring(L"E\0R", 3)).get());
         payable(i)->put_Value(nan);
         id_value(i, L"\x03");
       }},
      {"elements deeper than Read takes, before a NUL", [&](IInvoice* i) {
         ComPtr<IParty> p = party(i);
         for (int depth = 3; depth < 1000; ++depth) {
           ComPtr<IParty> agent;
           p->get_AgentParty(agent.put());
           p = agent;
         }
         p->put_MarkCareIndicator(VARIANT_TRUE);
         payable(i)->put_CurrencyID(Bstr(std::wstring(L"\0", 1)).get());
       }},
      {"foreign object", [&](IInvoice* i) {
         ComPtr<IIdentifier> foreign;
         foreign.attach(reinterpret_cast<IIdentifier*>(static_cast<IUnknown*>(new ForeignObject)));
         ASSERT_EQ(S_OK, i->put_UUID(foreign.get()));
       }},
  };
  for (const Case& c : cases) {
    ComPtr<IInvoice> invoice = create<IInvoice>(CLSID_Invoice);
    c.spoil(invoice.get());
    ComPtr<IDispatch> document;
    ASSERT_EQ(S_OK, invoice->QueryInterface(IID_IDispatch, document.put_void()));
    const Written written = expect_same_both_ways(document.get(), cls, c.name);
    EXPECT_EQ(DISP_E_EXCEPTION, written.status) << c.name;
    // A party that is its own agent keeps itself alive: another agent ends the cycle.
    party(invoice.get())->put_AgentParty(create<IParty>(CLSID_Party).get());
  }
}

}  // namespace
