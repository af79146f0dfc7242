// Makes the calling thread use a locale of its own, as a host that set a UTF-8 locale does.
#pragma once

#include <locale.h>

class ThreadLocale {
 public:
  explicit ThreadLocale(const char* name) : locale_(newlocale(LC_ALL_MASK, name, locale_t(0))) {
    if (locale_) previous_ = uselocale(locale_);
  }
  ~ThreadLocale() {
    if (!locale_) return;
    uselocale(previous_);
    freelocale(locale_);
  }
  ThreadLocale(const ThreadLocale&) = delete;
  ThreadLocale& operator=(const ThreadLocale&) = delete;

  // False when the system has no such locale.
  explicit operator bool() const { return locale_ != locale_t(0); }

 private:
  locale_t locale_;
  locale_t previous_ = locale_t(0);
};
