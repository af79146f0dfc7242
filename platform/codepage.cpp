#include <langinfo.h>
#include <locale.h>
#include <strings.h>

#include <cstring>
#include <cwchar>
#include <string>
#include <type_traits>

#include "platform/automation.h"

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// The code set of the locale the calling thread uses (its own, or the global one).
bool thread_locale_is_utf8() {
  const locale_t current = uselocale(locale_t(0));
  const char* codeset =
      current == LC_GLOBAL_LOCALE ? nl_langinfo(CODESET) : nl_langinfo_l(CODESET, current);
  return codeset && (strcasecmp(codeset, "UTF-8") == 0 || strcasecmp(codeset, "UTF8") == 0);
}

// The code page a code page identifier stands for on this thread.
UINT resolved(UINT codePage) {
  switch (codePage) {
    case CP_THREAD_ACP: return thread_locale_is_utf8() ? CP_UTF8 : CP_LATIN1;
    case CP_ACP:
    case CP_OEMCP: return CP_LATIN1;
    default: return codePage;
  }
}

bool is_scalar_value(char32_t c) { return c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF); }

bool is_high_surrogate(char32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool is_low_surrogate(char32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

int fail(DWORD error) {
  SetLastError(error);
  return 0;
}

// Where converted text goes: counted only while `out` is null, written otherwise.
template <class Char>
struct Sink {
  Char* out = nullptr;
  size_t size = 0;
  void put(Char c) {
    if (out) out[size] = c;
    ++size;
  }
  // `count` characters below 0x80.
  void put_narrowed(const wchar_t* text, size_t count) {
    if (out) {
      for (size_t i = 0; i < count; ++i) out[size + i] = Char(text[i]);
    }
    size += count;
  }
};

// How many characters from `text` on are ASCII.
size_t ascii_run(const wchar_t* text, size_t length) {
  size_t run = 0;
  while (run < length && static_cast<std::make_unsigned_t<wchar_t>>(text[run]) < 0x80) ++run;
  return run;
}

void append_utf8(Sink<char>& out, char32_t c) {
  if (c < 0x80) {
    out.put(char(c));
  } else if (c < 0x800) {
    out.put(char(0xC0 | (c >> 6)));
    out.put(char(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.put(char(0xE0 | (c >> 12)));
    out.put(char(0x80 | ((c >> 6) & 0x3F)));
    out.put(char(0x80 | (c & 0x3F)));
  } else {
    out.put(char(0xF0 | (c >> 18)));
    out.put(char(0x80 | ((c >> 12) & 0x3F)));
    out.put(char(0x80 | ((c >> 6) & 0x3F)));
    out.put(char(0x80 | (c & 0x3F)));
  }
}

// Decodes one UTF-8 sequence at `at`; an invalid one yields U+FFFD and `valid` false, consuming
// the longest prefix that could have started a valid sequence (at least one byte).
char32_t next_utf8(const unsigned char* at, const unsigned char* end, const unsigned char*& next,
                   bool& valid) {
  const unsigned char lead = *at;
  valid = true;
  next = at + 1;
  if (lead < 0x80) return lead;
  int extra = 0;
  char32_t value = 0, minimum = 0;
  if (lead >= 0xC2 && lead <= 0xDF) extra = 1, value = lead & 0x1F, minimum = 0x80;
  else if (lead >= 0xE0 && lead <= 0xEF) extra = 2, value = lead & 0x0F, minimum = 0x800;
  else if (lead >= 0xF0 && lead <= 0xF4) extra = 3, value = lead & 0x07, minimum = 0x10000;
  else return valid = false, kReplacement;
  for (int i = 0; i < extra; ++i, ++next) {
    if (next == end || (*next & 0xC0) != 0x80) return valid = false, kReplacement;
    value = (value << 6) | (*next & 0x3F);
  }
  if (value < minimum || !is_scalar_value(value)) return valid = false, kReplacement;
  return value;
}

// One pass of a conversion into `out`; false with the error set when the text cannot be
// converted under `flags`.
bool encode(UINT codePage, DWORD flags, const wchar_t* wide, size_t length, char fallback,
            bool& usedDefault, Sink<char>& out) {
  if (codePage == CP_LATIN1) {
    for (size_t i = 0; i < length; ++i) {
      const auto c = static_cast<char32_t>(wide[i]);
      if (c > 0xFF) usedDefault = true;
      out.put(c <= 0xFF ? char(c) : fallback);
    }
    return true;
  }
  for (size_t i = 0; i < length; ++i) {
    // Runs of ASCII, the bulk of any document, go over in one loop the compiler can widen.
    const size_t run = ascii_run(wide + i, length - i);
    out.put_narrowed(wide + i, run);
    if ((i += run) == length) break;
    char32_t c = static_cast<char32_t>(wide[i]);
    if (is_high_surrogate(c) && i + 1 < length && is_low_surrogate(char32_t(wide[i + 1]))) {
      c = 0x10000 + ((c - 0xD800) << 10) + (char32_t(wide[++i]) - 0xDC00);
    } else if (!is_scalar_value(c)) {
      if (flags & WC_ERR_INVALID_CHARS) return fail(ERROR_NO_UNICODE_TRANSLATION), false;
      c = kReplacement;
    }
    append_utf8(out, c);
  }
  return true;
}

bool decode(UINT codePage, DWORD flags, const unsigned char* at, const unsigned char* end,
            Sink<wchar_t>& out) {
  if (codePage == CP_LATIN1) {
    for (; at != end; ++at) out.put(wchar_t(*at));
    return true;
  }
  while (at != end) {
    if (*at < 0x80) {
      out.put(wchar_t(*at++));
      continue;
    }
    bool valid = true;
    const char32_t c = next_utf8(at, end, at, valid);
    if (!valid && (flags & MB_ERR_INVALID_CHARS)) return fail(ERROR_NO_UNICODE_TRANSLATION), false;
    out.put(wchar_t(c));
  }
  return true;
}

// Counts, then converts into the caller's buffer when it holds the whole text; only the size
// when the capacity is 0.
template <class Char, class Convert>
int deliver(Char* out, int capacity, Convert&& convert) {
  Sink<Char> counted;
  if (!convert(counted)) return 0;
  if (counted.size > size_t(INT32_MAX)) return fail(ERROR_INVALID_PARAMETER);
  if (capacity == 0) return int(counted.size);
  if (counted.size > size_t(capacity)) return fail(ERROR_INSUFFICIENT_BUFFER);
  Sink<Char> written{out};
  convert(written);
  return int(written.size);
}

}  // namespace

UINT GetACP() { return CP_LATIN1; }

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWCH wide, int wideLength, LPSTR bytes,
                        int bytesCapacity, LPCCH defaultChar, LPBOOL usedDefaultChar) {
  if (!wide || wideLength == 0 || wideLength < -1 || bytesCapacity < 0 || (bytesCapacity > 0 && !bytes))
    return fail(ERROR_INVALID_PARAMETER);
  const size_t length = wideLength == -1 ? std::wcslen(wide) + 1 : size_t(wideLength);
  codePage = resolved(codePage);
  if (codePage == CP_LATIN1 && (flags & WC_ERR_INVALID_CHARS)) return fail(ERROR_INVALID_FLAGS);
  if (codePage == CP_UTF8 && (defaultChar || usedDefaultChar)) return fail(ERROR_INVALID_PARAMETER);
  if (codePage != CP_LATIN1 && codePage != CP_UTF8) return fail(ERROR_INVALID_PARAMETER);
  const char fallback = defaultChar ? *defaultChar : '?';
  bool usedDefault = false;
  const int result = deliver(bytes, bytesCapacity, [&](Sink<char>& out) {
    return encode(codePage, flags, wide, length, fallback, usedDefault, out);
  });
  if (usedDefaultChar) *usedDefaultChar = usedDefault ? TRUE : FALSE;
  return result;
}

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCCH bytes, int bytesLength, LPWSTR wide,
                        int wideCapacity) {
  if (!bytes || bytesLength == 0 || bytesLength < -1 || wideCapacity < 0 || (wideCapacity > 0 && !wide))
    return fail(ERROR_INVALID_PARAMETER);
  const size_t length = bytesLength == -1 ? std::strlen(bytes) + 1 : size_t(bytesLength);
  const auto* at = reinterpret_cast<const unsigned char*>(bytes);
  codePage = resolved(codePage);
  if (codePage != CP_LATIN1 && codePage != CP_UTF8) return fail(ERROR_INVALID_PARAMETER);
  return deliver(wide, wideCapacity, [&](Sink<wchar_t>& out) {
    return decode(codePage, flags, at, at + length, out);
  });
}
