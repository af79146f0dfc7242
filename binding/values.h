// The binding's own fundamental types: numbers, indicators, dates, times and binary data that are
// read strictly and written in one canonical form. Included at the end of binding/xml-schema.hxx
// (never directly), where it replaces the runtime's lenient parsing and its number printing:
// - a value whose text is not of its type fails the parse with the element, its line and the text
//   ("invalid value 'garbage' for cbc:IssueDate at line 12"); whitespace around it is allowed;
// - dates and times must exist on the calendar and the clock, dates lie in the years 100 to 9999;
// - numbers are written in plain decimal notation with the fewest digits that read back to the
//   same double, and a number that is not finite cannot be written.

#include <xercesc/dom/DOMAttr.hpp>
#include <xercesc/dom/DOMElement.hpp>

#include <cstddef>
#include <optional>
#include <string>

namespace Morvek::UBL2 {

// The document parser records each element's line under this DOM user-data key, as a number
// cast to a pointer, so that a value error can say where the value stands.
inline constexpr char16_t element_line_key[] = u"tivalo:line";

// A failure of the binding with a message of its own, in the runtime's exception family so that
// every document operation reports it as it reports the runtime's errors.
class message_error : public xsd::cxx::tree::exception<wchar_t> {
 public:
  explicit message_error(std::wstring message);
  const std::wstring& message() const { return message_; }
  const char* what() const noexcept override;

 protected:
  void print(std::wostream& os) const override;

 private:
  std::wstring message_;
  std::string narrow_;
};

// The first character of a client's text that no XML 1.0 document can carry (a control
// character, NUL included, a lone surrogate, a value above U+10FFFF), or none. A UTF-16 pair held
// in two wchar_t is the one character it encodes.
std::optional<char32_t> unwritable_character(const wchar_t* text, std::size_t length);

// The DOM cannot hold such a text whole (a NUL ends it, a value above U+10FFFF turns into two
// code units that name another character), so the node given it is marked under this key with
// that character plus one, for the character check to name it.
inline constexpr char16_t unwritable_character_key[] = u"tivalo:unwritable";

}  // namespace Morvek::UBL2

namespace xsd::cxx::tree {

// Amounts (xsd:double here, a decimal in the schema and read as one), the decimal types and
// indicators.
template <>
struct traits<double, wchar_t, schema_type::double_> {
  typedef double type;
  static double create(const xercesc::DOMElement& e, flags, container*);
  static double create(const xercesc::DOMAttr& a, flags, container*);
  static double create(const std::wstring& s, const xercesc::DOMElement* e, flags, container*);
};

template <>
struct traits<double, wchar_t, schema_type::decimal> {
  typedef double type;
  static double create(const xercesc::DOMElement& e, flags, container*);
  static double create(const xercesc::DOMAttr& a, flags, container*);
  static double create(const std::wstring& s, const xercesc::DOMElement* e, flags, container*);
};

template <>
struct traits<bool, wchar_t, schema_type::other> {
  typedef bool type;
  static bool create(const xercesc::DOMElement& e, flags, container*);
  static bool create(const xercesc::DOMAttr& a, flags, container*);
  static bool create(const std::wstring& s, const xercesc::DOMElement* e, flags, container*);
};

void operator<<(list_stream<wchar_t>& ls, const as_double<double>& d);
void operator<<(list_stream<wchar_t>& ls, const as_decimal<double>& d);
void operator<<(list_stream<wchar_t>& ls, bool b);

}  // namespace xsd::cxx::tree

namespace XERCES_CPP_NAMESPACE {

void operator<<(xercesc::DOMElement& e, const xsd::cxx::tree::as_double<double>& d);
void operator<<(xercesc::DOMAttr& a, const xsd::cxx::tree::as_double<double>& d);
void operator<<(xercesc::DOMElement& e, const xsd::cxx::tree::as_decimal<double>& d);
void operator<<(xercesc::DOMAttr& a, const xsd::cxx::tree::as_decimal<double>& d);
void operator<<(xercesc::DOMElement& e, bool b);
void operator<<(xercesc::DOMAttr& a, bool b);

// Every text the binding serializes; a text the DOM cannot hold whole marks its node (above).
void operator<<(xercesc::DOMElement& e, const std::wstring& text);
void operator<<(xercesc::DOMAttr& a, const std::wstring& text);

}  // namespace XERCES_CPP_NAMESPACE

namespace xml_schema {

// Each class keeps the runtime's interface (fields, time zone, buffer) and adds strict parsing.
class date : public date_base {
 public:
  date();
  date(int year, unsigned short month, unsigned short day);
  date(const xercesc::DOMElement& e, flags f = 0, container* c = 0);
  date(const xercesc::DOMAttr& a, flags f = 0, container* c = 0);
  date(const std::wstring& s, const xercesc::DOMElement* e, flags f = 0, container* c = 0);
  date(const date& x, flags f = 0, container* c = 0);
  date& operator=(const date&) = default;
  date* _clone(flags f = 0, container* c = 0) const override;

 private:
  void assign(const std::wstring& text, const xercesc::DOMNode* where);
};

class time : public time_base {
 public:
  time();
  time(unsigned short hours, unsigned short minutes, double seconds);
  time(const xercesc::DOMElement& e, flags f = 0, container* c = 0);
  time(const xercesc::DOMAttr& a, flags f = 0, container* c = 0);
  time(const std::wstring& s, const xercesc::DOMElement* e, flags f = 0, container* c = 0);
  time(const time& x, flags f = 0, container* c = 0);
  time& operator=(const time&) = default;
  time* _clone(flags f = 0, container* c = 0) const override;

 private:
  void assign(const std::wstring& text, const xercesc::DOMNode* where);
};

class date_time : public date_time_base {
 public:
  date_time();
  date_time(int year, unsigned short month, unsigned short day, unsigned short hours,
            unsigned short minutes, double seconds);
  date_time(const xercesc::DOMElement& e, flags f = 0, container* c = 0);
  date_time(const xercesc::DOMAttr& a, flags f = 0, container* c = 0);
  date_time(const std::wstring& s, const xercesc::DOMElement* e, flags f = 0, container* c = 0);
  date_time(const date_time& x, flags f = 0, container* c = 0);
  date_time& operator=(const date_time&) = default;
  date_time* _clone(flags f = 0, container* c = 0) const override;

 private:
  void assign(const std::wstring& text, const xercesc::DOMNode* where);
};

class base64_binary : public base64_binary_base {
 public:
  explicit base64_binary(std::size_t size = 0);
  base64_binary(const void* data, std::size_t size);
  base64_binary(const xercesc::DOMElement& e, flags f = 0, container* c = 0);
  base64_binary(const xercesc::DOMAttr& a, flags f = 0, container* c = 0);
  base64_binary(const std::wstring& s, const xercesc::DOMElement* e, flags f = 0,
                container* c = 0);
  base64_binary(const base64_binary& x, flags f = 0, container* c = 0);
  base64_binary& operator=(const base64_binary&) = default;
  base64_binary* _clone(flags f = 0, container* c = 0) const override;

 private:
  void assign(const std::wstring& text, const xercesc::DOMNode* where);
};

}  // namespace xml_schema
