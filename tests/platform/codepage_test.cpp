// The thread code page (the code set of the thread's locale) and UTF-8.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "platform/automation.h"
#include "tests/thread_locale.h"

namespace {

std::wstring to_wide(UINT codePage, const std::string& bytes) {
  const int size = MultiByteToWideChar(codePage, 0, bytes.data(), int(bytes.size()), nullptr, 0);
  std::wstring wide(size_t(size), L'\0');
  EXPECT_EQ(size, MultiByteToWideChar(codePage, 0, bytes.data(), int(bytes.size()), wide.data(), size));
  return wide;
}

std::string to_bytes(UINT codePage, const std::wstring& wide) {
  const int size = WideCharToMultiByte(codePage, 0, wide.data(), int(wide.size()), nullptr, 0, nullptr, nullptr);
  std::string bytes(size_t(size), '\0');
  EXPECT_EQ(size, WideCharToMultiByte(codePage, 0, wide.data(), int(wide.size()), bytes.data(), size, nullptr,
                                      nullptr));
  return bytes;
}

}  // namespace

TEST(CodePage, ThreadCodePageKeepsEveryByte) {
  std::string all;
  for (int b = 0; b < 256; ++b) all += char(b);
  for (UINT codePage : {UINT(CP_ACP), UINT(CP_THREAD_ACP)}) {
    const std::wstring wide = to_wide(codePage, all);
    ASSERT_EQ(256u, wide.size());
    for (int b = 0; b < 256; ++b) EXPECT_EQ(wchar_t(b), wide[size_t(b)]);
    EXPECT_EQ(all, to_bytes(codePage, wide));
  }
}

TEST(CodePage, WideCharactersBeyondLatin1BecomeTheDefault) {
  const std::wstring wide = L"a\u20ACb";
  char out[8] = {};
  BOOL usedDefault = FALSE;
  ASSERT_EQ(3, WideCharToMultiByte(CP_THREAD_ACP, 0, wide.c_str(), 3, out, 8, nullptr, &usedDefault));
  EXPECT_STREQ("a?b", out);
  EXPECT_TRUE(usedDefault);
  ASSERT_EQ(3, WideCharToMultiByte(CP_ACP, 0, wide.c_str(), 3, out, 8, "#", &usedDefault));
  EXPECT_EQ(std::string("a#b"), std::string(out, 3));
  ASSERT_EQ(1, WideCharToMultiByte(CP_ACP, 0, L"\u00FF", 1, out, 8, nullptr, &usedDefault));
  EXPECT_FALSE(usedDefault);
}

TEST(CodePage, LengthsFollowTheWindowsRules) {
  EXPECT_EQ(4, MultiByteToWideChar(CP_ACP, 0, "abc", -1, nullptr, 0));  // terminator counted
  wchar_t wide[4];
  ASSERT_EQ(4, MultiByteToWideChar(CP_ACP, 0, "abc", -1, wide, 4));
  EXPECT_STREQ(L"abc", wide);
  EXPECT_EQ(0, MultiByteToWideChar(CP_ACP, 0, "abc", -1, wide, 3));
  EXPECT_EQ(DWORD(ERROR_INSUFFICIENT_BUFFER), GetLastError());
  EXPECT_EQ(0, MultiByteToWideChar(CP_ACP, 0, "abc", 0, wide, 4));
  EXPECT_EQ(DWORD(ERROR_INVALID_PARAMETER), GetLastError());
  EXPECT_EQ(0, MultiByteToWideChar(1252, 0, "abc", 3, wide, 4));
  EXPECT_EQ(6, WideCharToMultiByte(CP_UTF8, 0, L"\u00e9\u20ac", -1, nullptr, 0, nullptr, nullptr));
}

TEST(CodePage, Utf8RoundTripAndInvalidInput) {
  const std::wstring wide = L"x\u00e9\u20ac\U0001F600";
  const std::string bytes = to_bytes(CP_UTF8, wide);
  EXPECT_EQ("x\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", bytes);
  EXPECT_EQ(wide, to_wide(CP_UTF8, bytes));
  EXPECT_EQ(L"a\uFFFDb", to_wide(CP_UTF8, "a\xC3" "b"));
  EXPECT_EQ(L"\uFFFD\uFFFD", to_wide(CP_UTF8, "\xC0\xAF"));  // overlong form
  wchar_t out[8];
  // Overlong forms of '/' in three and four bytes, an encoded surrogate, a value beyond U+10FFFF:
  // never the character they spell.
  for (const std::string invalid : {"a\xE0\x80\xAF", "a\xF0\x80\x80\xAF", "a\xED\xA0\x80",
                                    "a\xF4\x90\x80\x80", "a\xF5\x80\x80\x80", "a\xFF"}) {
    const std::wstring wide = to_wide(CP_UTF8, invalid);
    EXPECT_EQ(L'a', wide.at(0));
    EXPECT_EQ(std::wstring::npos, wide.find_first_not_of(L"\uFFFD", 1)) << invalid;
    EXPECT_EQ(0, MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, invalid.data(),
                                     int(invalid.size()), out, 8)) << invalid;
    EXPECT_EQ(DWORD(ERROR_NO_UNICODE_TRANSLATION), GetLastError());
  }
  const wchar_t surrogate[] = {wchar_t(0xD800)};
  EXPECT_EQ("\xEF\xBF\xBD", to_bytes(CP_UTF8, std::wstring(surrogate, 1)));
}

TEST(CodePage, Utf8TextHeldAsUtf16SurrogatesIsOneCharacter) {
  const wchar_t pair[] = {wchar_t(0xD83D), wchar_t(0xDE00)};
  EXPECT_EQ("\xF0\x9F\x98\x80", to_bytes(CP_UTF8, std::wstring(pair, 2)));
  char out[8];
  EXPECT_EQ(0, WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, pair, 1, out, 8, nullptr, nullptr));
  EXPECT_EQ(DWORD(ERROR_NO_UNICODE_TRANSLATION), GetLastError());
  const wchar_t reversed[] = {wchar_t(0xDE00), wchar_t(0xD83D)};
  EXPECT_EQ(0, WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, reversed, 2, out, 8, nullptr, nullptr));
  // Only UTF-8 knows the flag; a single-byte page reports substitutions instead.
  EXPECT_EQ(0, WideCharToMultiByte(CP_ACP, WC_ERR_INVALID_CHARS, L"a", 1, out, 8, nullptr, nullptr));
  EXPECT_EQ(DWORD(ERROR_INVALID_FLAGS), GetLastError());
}

TEST(CodePage, ThreadCodePageFollowsTheThreadsLocale) {
  const std::wstring text = L"\u00e9\u20ac\u4e2d\U0001F600";
  const std::string utf8 = "\xC3\xA9\xE2\x82\xAC\xE4\xB8\xAD\xF0\x9F\x98\x80";
  {
    ThreadLocale utf8_locale("C.UTF-8");
    if (!utf8_locale) GTEST_SKIP() << "no C.UTF-8 locale";
    EXPECT_EQ(utf8, to_bytes(CP_THREAD_ACP, text));
    EXPECT_EQ(text, to_wide(CP_THREAD_ACP, utf8));
    EXPECT_EQ(std::string("\xE9"), to_bytes(CP_ACP, L"\u00e9")) << "CP_ACP stays ISO-8859-1";
    // Another thread keeps its own locale: the "C" locale of a program that never set one.
    std::string other_thread;
    std::thread([&] { other_thread = to_bytes(CP_THREAD_ACP, L"\u00e9"); }).join();
    EXPECT_EQ(std::string("\xE9"), other_thread);
  }
  EXPECT_EQ(std::string("\xE9"), to_bytes(CP_THREAD_ACP, L"\u00e9"));
  EXPECT_EQ(utf8.size(), to_wide(CP_THREAD_ACP, utf8).size()) << "one character per byte";
}
