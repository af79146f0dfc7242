#include "binding/xml-schema.hxx"

#include "binding/namespaces.h"
#include "binding/number_text.h"

#include <xercesc/util/Base64.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xsd/cxx/tree/text.hxx>
#include <xsd/cxx/tree/type-factory-map.hxx>
#include <xsd/cxx/xml/dom/serialization-header.hxx>
#include <xsd/cxx/xml/string.hxx>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <string_view>
#include <type_traits>

namespace Morvek::UBL2 {

std::wstring unwritable_number_message(double value, const std::wstring& place) {
  const wchar_t* shown = std::isnan(value) ? L"NaN" : (value > 0 ? L"INF" : L"-INF");
  return L"Tivalo: The value " + std::wstring(shown) + (place.empty() ? L"" : L" of " + place) +
         L" cannot be written: a number in a document must be finite.";
}

// The digits are the standard library's shortest ones; only the decimal point is placed here.
std::string plain_decimal(double value) {
  if (value == 0) return "0";
  char scientific[32];  // "-d.dddddddddddddddde-308"
  const auto end = std::to_chars(scientific, scientific + sizeof scientific, std::fabs(value),
                                 std::chars_format::scientific).ptr;
  const char* e = std::find(scientific, end, 'e');
  std::string digits;
  std::copy_if(static_cast<const char*>(scientific), e, std::back_inserter(digits), [](char c) { return c != '.'; });
  int exponent = 0;
  std::from_chars(e + 1 + (e[1] == '+'), end, exponent);

  // The value is 0.<digits> times ten to the power `point`.
  const int point = exponent + 1;
  const int count = static_cast<int>(digits.size());
  std::string text = value < 0 ? "-" : "";
  if (point <= 0) text += "0." + std::string(-point, '0') + digits;
  else if (point >= count) text += digits + std::string(point - count, '0');
  else text += digits.substr(0, point) + "." + digits.substr(point);
  return text;
}

std::optional<char32_t> unwritable_character(const wchar_t* text, std::size_t length) {
  const auto high = [](char32_t c) { return c >= 0xD800 && c <= 0xDBFF; };
  const auto low = [](char32_t c) { return c >= 0xDC00 && c <= 0xDFFF; };
  for (std::size_t i = 0; i < length; ++i) {
    const auto c = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[i]));
    if (c >= 0x20 && c <= 0xD7FF) continue;
    if (c == 0x9 || c == 0xA || c == 0xD || (c >= 0xE000 && c <= 0xFFFD) ||
        (c >= 0x10000 && c <= 0x10FFFF))
      continue;
    if (high(c) && i + 1 < length &&
        low(static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[i + 1])))) {
      ++i;
      continue;
    }
    return c;
  }
  return std::nullopt;
}

message_error::message_error(std::wstring message) : message_(std::move(message)) {
  for (wchar_t c : message_) narrow_ += c < 128 ? static_cast<char>(c) : '?';
}

const char* message_error::what() const noexcept { return narrow_.c_str(); }

void message_error::print(std::wostream& os) const { os << message_; }

namespace {

// ---- Where a value stands -----------------------------------------------------------------------

std::wstring wide(const XMLCh* text) {
  return text ? xsd::cxx::xml::transcode<wchar_t>(text) : std::wstring();
}

// An element as UBL writes it ("cbc:IssueDate"), whatever prefix the document gave it.
std::wstring element_name(const xercesc::DOMElement& element) {
  const std::wstring ns = wide(element.getNamespaceURI());
  const std::wstring local = wide(element.getLocalName());
  for (const PrefixMapping& mapping : ubl_prefixes())
    if (ns == mapping.uri) return std::wstring(mapping.prefix) + L":" + local;
  return wide(element.getNodeName());
}

const xercesc::DOMElement* element_of(const xercesc::DOMNode* node) {
  if (!node) return nullptr;
  if (node->getNodeType() == xercesc::DOMNode::ATTRIBUTE_NODE)
    return static_cast<const xercesc::DOMAttr*>(node)->getOwnerElement();
  if (node->getNodeType() == xercesc::DOMNode::ELEMENT_NODE)
    return static_cast<const xercesc::DOMElement*>(node);
  return nullptr;
}

// "cbc:IssueDate at line 12", "attribute x of cbc:Note", or nothing when the node is unknown.
std::wstring place_of(const xercesc::DOMNode* node) {
  const xercesc::DOMElement* element = element_of(node);
  if (!element) return {};
  std::wstring place = element_name(*element);
  if (node->getNodeType() == xercesc::DOMNode::ATTRIBUTE_NODE)
    place = L"attribute " + wide(node->getNodeName()) + L" of " + place;
  // The key is UTF-16 on every platform; XMLCh is char16_t or wchar_t.
  const XMLCh* key = reinterpret_cast<const XMLCh*>(element_line_key);
  const auto line = reinterpret_cast<std::uintptr_t>(element->getUserData(key));
  if (line) place += L" at line " + std::to_wstring(line);
  return place;
}

// ---- Reading ------------------------------------------------------------------------------------

bool is_xml_space(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\n' || c == L'\r'; }

// Every type here collapses whitespace: only whitespace around the value is allowed.
std::wstring_view trimmed(std::wstring_view text) {
  while (!text.empty() && is_xml_space(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_xml_space(text.back())) text.remove_suffix(1);
  return text;
}

// A hostile text may be long: messages quote its beginning.
std::wstring quoted(std::wstring_view text) {
  constexpr std::size_t shown = 64;
  text = trimmed(text);
  return L"'" + std::wstring(text.substr(0, shown)) + (text.size() > shown ? L"...'" : L"'");
}

std::wstring invalid_value_text(std::wstring_view text, const xercesc::DOMNode* where) {
  const std::wstring place = place_of(where);
  return L"invalid value " + quoted(text) + (place.empty() ? L"" : L" for " + place);
}

[[noreturn]] void refuse(std::wstring_view text, const xercesc::DOMNode* where) {
  throw message_error(invalid_value_text(text, where));
}

bool is_digit(wchar_t c) { return c >= L'0' && c <= L'9'; }

// Reads a text from left to right; every reader returns false at the first thing it does not
// expect, and the callers refuse the whole value then.
class Cursor {
 public:
  explicit Cursor(std::wstring_view text) : text_(text) {}

  bool at_end() const { return at_ == text_.size(); }
  bool next_is(wchar_t c) const { return at_ < text_.size() && text_[at_] == c; }
  bool take(wchar_t c) {
    if (!next_is(c)) return false;
    ++at_;
    return true;
  }
  // Exactly `count` digits.
  bool number(std::size_t count, int& value) {
    if (text_.size() - at_ < count) return false;
    value = 0;
    for (std::size_t i = 0; i < count; ++i, ++at_) {
      if (!is_digit(text_[at_])) return false;
      value = value * 10 + (text_[at_] - L'0');
    }
    return true;
  }
  // One or more digits, copied as they stand.
  bool digits(std::string& out) {
    const std::size_t start = at_;
    for (; at_ < text_.size() && is_digit(text_[at_]); ++at_) out += static_cast<char>(text_[at_]);
    return at_ > start;
  }

 private:
  std::wstring_view text_;
  std::size_t at_ = 0;
};

// xsd:decimal: a sign and digits with at most one point. Amounts, held in a double, are decimals
// in the schema too, so no number takes an exponent; infinity and NaN are not numbers either.
std::optional<double> number_of(std::wstring_view text) {
  Cursor in(trimmed(text));
  std::string ascii;
  if (in.take(L'-')) ascii += '-';
  else in.take(L'+');
  const bool whole = in.digits(ascii);
  std::string fraction;
  if (in.take(L'.') && in.digits(fraction)) ascii += '.' + fraction;
  if (!whole && fraction.empty()) return std::nullopt;
  if (!in.at_end()) return std::nullopt;
  double value = 0;
  const auto [end, error] =
      std::from_chars(ascii.data(), ascii.data() + ascii.size(), value, std::chars_format::fixed);
  if (error != std::errc() || end != ascii.data() + ascii.size()) return std::nullopt;
  return value;
}

std::optional<bool> indicator_of(std::wstring_view text) {
  text = trimmed(text);
  if (text == L"true" || text == L"1") return true;
  if (text == L"false" || text == L"0") return false;
  return std::nullopt;
}

struct CalendarDay {
  int year = 1, month = 1, day = 1;
};
struct ClockTime {
  int hours = 0, minutes = 0;
  double seconds = 0;
};
struct Zone {
  bool present = false;
  int hours = 0, minutes = 0;
};

bool is_leap(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int days_in(int year, int month) {
  static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && is_leap(year) ? 29 : days[month - 1];
}

// YYYY-MM-DD of a day that exists, in the years an automation DATE can hold (100 to 9999).
bool read_day(Cursor& in, CalendarDay& d) {
  return in.number(4, d.year) && d.year >= 100 && in.take(L'-') && in.number(2, d.month) &&
         d.month >= 1 && d.month <= 12 && in.take(L'-') && in.number(2, d.day) && d.day >= 1 &&
         d.day <= days_in(d.year, d.month);
}

// hh:mm:ss with an optional fraction; 24:00:00 is the end of the day.
bool read_clock(Cursor& in, ClockTime& t) {
  int whole_seconds = 0;
  if (!(in.number(2, t.hours) && in.take(L':') && in.number(2, t.minutes) && in.take(L':') &&
        in.number(2, whole_seconds)))
    return false;
  std::string seconds = std::to_string(whole_seconds);
  if (in.take(L'.')) {
    seconds += '.';
    if (!in.digits(seconds)) return false;
  }
  std::from_chars(seconds.data(), seconds.data() + seconds.size(), t.seconds);
  if (t.hours == 24) return t.minutes == 0 && t.seconds == 0;
  return t.hours <= 23 && t.minutes <= 59 && whole_seconds <= 59;
}

// Z, or +hh:mm / -hh:mm up to 14 hours; absent when the text ends.
bool read_zone(Cursor& in, Zone& z) {
  if (in.at_end()) return true;
  z.present = true;
  if (in.take(L'Z')) return in.at_end();
  const int sign = in.take(L'-') ? -1 : (in.take(L'+') ? 1 : 0);
  if (!sign || !in.number(2, z.hours) || !in.take(L':') || !in.number(2, z.minutes)) return false;
  if (z.hours > 14 || z.minutes > 59 || (z.hours == 14 && z.minutes != 0)) return false;
  z.hours *= sign;
  z.minutes *= sign;
  return in.at_end();
}

template <class Value>
void set_zone(Value& value, const Zone& zone) {
  if (!zone.present) return value.zone_reset();
  value.zone_hours(static_cast<short>(zone.hours));
  value.zone_minutes(static_cast<short>(zone.minutes));
}

template <class Value>
void set_day(Value& value, const CalendarDay& d) {
  value.year(d.year);
  value.month(static_cast<unsigned short>(d.month));
  value.day(static_cast<unsigned short>(d.day));
}

template <class Value>
void set_clock(Value& value, const ClockTime& t) {
  value.hours(static_cast<unsigned short>(t.hours));
  value.minutes(static_cast<unsigned short>(t.minutes));
  value.seconds(t.seconds);
}

std::wstring text_of(const xercesc::DOMElement& e) {
  return xsd::cxx::tree::text_content<wchar_t>(e);
}
std::wstring text_of(const xercesc::DOMAttr& a) { return wide(a.getValue()); }

double number_or_refuse(const std::wstring& text, const xercesc::DOMNode* where) {
  if (const std::optional<double> value = number_of(text)) return *value;
  refuse(text, where);
}

bool indicator_or_refuse(const std::wstring& text, const xercesc::DOMNode* where) {
  if (const std::optional<bool> value = indicator_of(text)) return *value;
  refuse(text, where);
}

// ---- Writing ------------------------------------------------------------------------------------

// A number that is not finite cannot be written; the refusal names where it stands.
std::string written_number(double value, const xercesc::DOMNode* where) {
  if (!std::isfinite(value)) throw message_error(unwritable_number_message(value, place_of(where)));
  return plain_decimal(value);
}

std::wstring widened(const std::string& ascii) { return std::wstring(ascii.begin(), ascii.end()); }

}  // namespace
}  // namespace Morvek::UBL2

namespace xsd::cxx::tree {

using Morvek::UBL2::indicator_or_refuse;
using Morvek::UBL2::number_or_refuse;
using Morvek::UBL2::text_of;

double traits<double, wchar_t, schema_type::double_>::create(const xercesc::DOMElement& e, flags,
                                                             container*) {
  return number_or_refuse(text_of(e), &e);
}
double traits<double, wchar_t, schema_type::double_>::create(const xercesc::DOMAttr& a, flags,
                                                             container*) {
  return number_or_refuse(text_of(a), &a);
}
double traits<double, wchar_t, schema_type::double_>::create(const std::wstring& s,
                                                             const xercesc::DOMElement* e, flags,
                                                             container*) {
  return number_or_refuse(s, e);
}

double traits<double, wchar_t, schema_type::decimal>::create(const xercesc::DOMElement& e, flags,
                                                             container*) {
  return number_or_refuse(text_of(e), &e);
}
double traits<double, wchar_t, schema_type::decimal>::create(const xercesc::DOMAttr& a, flags,
                                                             container*) {
  return number_or_refuse(text_of(a), &a);
}
double traits<double, wchar_t, schema_type::decimal>::create(const std::wstring& s,
                                                             const xercesc::DOMElement* e, flags,
                                                             container*) {
  return number_or_refuse(s, e);
}

bool traits<bool, wchar_t, schema_type::other>::create(const xercesc::DOMElement& e, flags,
                                                       container*) {
  return indicator_or_refuse(text_of(e), &e);
}
bool traits<bool, wchar_t, schema_type::other>::create(const xercesc::DOMAttr& a, flags,
                                                       container*) {
  return indicator_or_refuse(text_of(a), &a);
}
bool traits<bool, wchar_t, schema_type::other>::create(const std::wstring& s,
                                                       const xercesc::DOMElement* e, flags,
                                                       container*) {
  return indicator_or_refuse(s, e);
}

void operator<<(list_stream<wchar_t>& ls, const as_double<double>& d) {
  ls.os_ << Morvek::UBL2::widened(Morvek::UBL2::written_number(d.x, &ls.parent_));
}
void operator<<(list_stream<wchar_t>& ls, const as_decimal<double>& d) {
  ls.os_ << Morvek::UBL2::widened(Morvek::UBL2::written_number(d.x, &ls.parent_));
}
void operator<<(list_stream<wchar_t>& ls, bool b) { ls.os_ << (b ? L"true" : L"false"); }

}  // namespace xsd::cxx::tree

namespace XERCES_CPP_NAMESPACE {

using Morvek::UBL2::written_number;
using Morvek::UBL2::widened;

void operator<<(xercesc::DOMElement& e, const xsd::cxx::tree::as_double<double>& d) {
  e << widened(written_number(d.x, &e));
}
void operator<<(xercesc::DOMAttr& a, const xsd::cxx::tree::as_double<double>& d) {
  a << widened(written_number(d.x, &a));
}
void operator<<(xercesc::DOMElement& e, const xsd::cxx::tree::as_decimal<double>& d) {
  e << widened(written_number(d.x, &e));
}
void operator<<(xercesc::DOMAttr& a, const xsd::cxx::tree::as_decimal<double>& d) {
  a << widened(written_number(d.x, &a));
}
void operator<<(xercesc::DOMElement& e, bool b) { e << std::wstring(b ? L"true" : L"false"); }
void operator<<(xercesc::DOMAttr& a, bool b) { a << std::wstring(b ? L"true" : L"false"); }

namespace {

void mark_unwritable(xercesc::DOMNode& node, const std::wstring& text) {
  if (const auto c = Morvek::UBL2::unwritable_character(text.data(), text.size()))
    if (*c == 0 || *c > 0x10FFFF)
      node.setUserData(reinterpret_cast<const XMLCh*>(Morvek::UBL2::unwritable_character_key),
                       reinterpret_cast<void*>(std::uintptr_t(*c) + 1), nullptr);
}

}  // namespace

void operator<<(xercesc::DOMElement& e, const std::wstring& text) {
  xsd::cxx::xml::dom::clear<char>(e);
  mark_unwritable(e, text);
  if (!text.empty()) e.setTextContent(xsd::cxx::xml::string(text).c_str());
}

void operator<<(xercesc::DOMAttr& a, const std::wstring& text) {
  mark_unwritable(a, text);
  a.setValue(xsd::cxx::xml::string(text).c_str());
}

}  // namespace XERCES_CPP_NAMESPACE

namespace xml_schema {

using Morvek::UBL2::CalendarDay;
using Morvek::UBL2::ClockTime;
using Morvek::UBL2::Cursor;
using Morvek::UBL2::Zone;
using Morvek::UBL2::refuse;
using Morvek::UBL2::text_of;
using Morvek::UBL2::trimmed;

// ---- date ---------------------------------------------------------------------------------------

date::date() : date_base(1, 1, 1) {}
date::date(int year, unsigned short month, unsigned short day) : date_base(year, month, day) {}
date::date(const xercesc::DOMElement& e, flags, container* c) : date() {
  _container(c);
  assign(text_of(e), &e);
}
date::date(const xercesc::DOMAttr& a, flags, container* c) : date() {
  _container(c);
  assign(text_of(a), &a);
}
date::date(const std::wstring& s, const xercesc::DOMElement* e, flags, container* c) : date() {
  _container(c);
  assign(s, e);
}
date::date(const date& x, flags f, container* c) : date_base(x, f, c) {}
date* date::_clone(flags f, container* c) const { return new date(*this, f, c); }

void date::assign(const std::wstring& text, const xercesc::DOMNode* where) {
  Cursor in(trimmed(text));
  CalendarDay day;
  Zone zone;
  if (!Morvek::UBL2::read_day(in, day) || !Morvek::UBL2::read_zone(in, zone)) refuse(text, where);
  Morvek::UBL2::set_day(*this, day);
  Morvek::UBL2::set_zone(*this, zone);
}

// ---- time ---------------------------------------------------------------------------------------

time::time() : time_base(0, 0, 0) {}
time::time(unsigned short hours, unsigned short minutes, double seconds)
    : time_base(hours, minutes, seconds) {}
time::time(const xercesc::DOMElement& e, flags, container* c) : time() {
  _container(c);
  assign(text_of(e), &e);
}
time::time(const xercesc::DOMAttr& a, flags, container* c) : time() {
  _container(c);
  assign(text_of(a), &a);
}
time::time(const std::wstring& s, const xercesc::DOMElement* e, flags, container* c) : time() {
  _container(c);
  assign(s, e);
}
time::time(const time& x, flags f, container* c) : time_base(x, f, c) {}
time* time::_clone(flags f, container* c) const { return new time(*this, f, c); }

void time::assign(const std::wstring& text, const xercesc::DOMNode* where) {
  Cursor in(trimmed(text));
  ClockTime clock;
  Zone zone;
  if (!Morvek::UBL2::read_clock(in, clock) || !Morvek::UBL2::read_zone(in, zone))
    refuse(text, where);
  Morvek::UBL2::set_clock(*this, clock);
  Morvek::UBL2::set_zone(*this, zone);
}

// ---- date_time ----------------------------------------------------------------------------------

date_time::date_time() : date_time_base(1, 1, 1, 0, 0, 0) {}
date_time::date_time(int year, unsigned short month, unsigned short day, unsigned short hours,
                     unsigned short minutes, double seconds)
    : date_time_base(year, month, day, hours, minutes, seconds) {}
date_time::date_time(const xercesc::DOMElement& e, flags, container* c) : date_time() {
  _container(c);
  assign(text_of(e), &e);
}
date_time::date_time(const xercesc::DOMAttr& a, flags, container* c) : date_time() {
  _container(c);
  assign(text_of(a), &a);
}
date_time::date_time(const std::wstring& s, const xercesc::DOMElement* e, flags, container* c)
    : date_time() {
  _container(c);
  assign(s, e);
}
date_time::date_time(const date_time& x, flags f, container* c) : date_time_base(x, f, c) {}
date_time* date_time::_clone(flags f, container* c) const { return new date_time(*this, f, c); }

void date_time::assign(const std::wstring& text, const xercesc::DOMNode* where) {
  Cursor in(trimmed(text));
  CalendarDay day;
  ClockTime clock;
  Zone zone;
  if (!Morvek::UBL2::read_day(in, day) || !in.take(L'T') || !Morvek::UBL2::read_clock(in, clock) ||
      !Morvek::UBL2::read_zone(in, zone))
    refuse(text, where);
  Morvek::UBL2::set_day(*this, day);
  Morvek::UBL2::set_clock(*this, clock);
  Morvek::UBL2::set_zone(*this, zone);
}

// ---- base64_binary ------------------------------------------------------------------------------

base64_binary::base64_binary(std::size_t size) : base64_binary_base(size) {}
base64_binary::base64_binary(const void* data, std::size_t size) : base64_binary_base(data, size) {}
base64_binary::base64_binary(const xercesc::DOMElement& e, flags, container* c) {
  _container(c);
  assign(text_of(e), &e);
}
base64_binary::base64_binary(const xercesc::DOMAttr& a, flags, container* c) {
  _container(c);
  assign(text_of(a), &a);
}
base64_binary::base64_binary(const std::wstring& s, const xercesc::DOMElement* e, flags,
                             container* c) {
  _container(c);
  assign(s, e);
}
base64_binary::base64_binary(const base64_binary& x, flags f, container* c)
    : base64_binary_base(x, f, c) {}
base64_binary* base64_binary::_clone(flags f, container* c) const {
  return new base64_binary(*this, f, c);
}

// Base64 in the MIME form: line breaks and spaces between the characters are allowed, nothing
// else is; an empty text is no bytes.
void base64_binary::assign(const std::wstring& text, const xercesc::DOMNode* where) {
  const std::wstring_view value = trimmed(text);
  if (value.empty()) {
    size(0);
    return;
  }
  const xsd::cxx::xml::string xml_text{std::wstring(value)};
  xercesc::MemoryManager* memory = xercesc::XMLPlatformUtils::fgMemoryManager;
  XMLSize_t length = 0;
  XMLByte* bytes = xercesc::Base64::decodeToXMLByte(xml_text.c_str(), &length, memory,
                                                    xercesc::Base64::Conf_RFC2045);
  if (!bytes) throw Morvek::UBL2::message_error(Morvek::UBL2::invalid_value_text(text, where));
  size(length);
  if (length) std::memcpy(data(), bytes, length);
  memory->deallocate(bytes);
}

}  // namespace xml_schema

namespace {

// An element may name a built-in type with xsi:type; the types that have their own classes here
// are then built by those classes, not by the runtime's lenient ones.
const xsd::cxx::tree::type_factory_plate<0, wchar_t> factory_plate;

template <class Type>
bool replace_factory(const wchar_t* name) {
  xsd::cxx::tree::type_factory_map_instance<0, wchar_t>().register_type(
      xsd::cxx::xml::qualified_name<wchar_t>(name, L"http://www.w3.org/2001/XMLSchema"),
      &xsd::cxx::tree::factory_impl<Type>, true);
  return true;
}

const bool built_in_factories_replaced =
    replace_factory<xml_schema::date>(L"date") && replace_factory<xml_schema::time>(L"time") &&
    replace_factory<xml_schema::date_time>(L"dateTime") &&
    replace_factory<xml_schema::base64_binary>(L"base64Binary");

}  // namespace
