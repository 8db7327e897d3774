/*
 * Locales for tests of multibyte text: UTF-8, which every machine has, and two-byte encodings of
 * East Asia, which are built by localedef when a test first asks for them.
 *
 *     const CtypeLocale utf8(utf8_locale);
 *
 *     for (const TwoByteEncoding& encoding : two_byte_encodings) {
 *         const TwoByteLocale locale(encoding);
 *         if (!locale.is_set()) { continue; }
 *         ...
 *     }
 *
 * or, where one such encoding will do,
 *
 *     REQUIRE_TWO_BYTE_LOCALE(locale);   // skips the test where none can be built
 *     ... locale.encoding().backslash ...
 */
#ifndef WQEVENTS_TESTS_SUPPORT_LOCALES_H
#define WQEVENTS_TESTS_SUPPORT_LOCALES_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>

#include "support/env_value.h"

namespace wq::test {

inline constexpr const char* utf8_locale = "C.UTF-8";

/* The locale of the character classes for as long as the object lives. */
class CtypeLocale {
  public:
    explicit CtypeLocale(const char* name)
        : before_(std::setlocale(LC_CTYPE, nullptr)),
          is_set_(name != nullptr && std::setlocale(LC_CTYPE, name) != nullptr) {}
    ~CtypeLocale() { std::setlocale(LC_CTYPE, before_.c_str()); }
    CtypeLocale(const CtypeLocale&) = delete;
    CtypeLocale& operator=(const CtypeLocale&) = delete;

    bool is_set() const { return is_set_; }

  private:
    std::string before_;
    bool is_set_;
};

/* An encoding with characters whose second byte is a delimiter in ASCII. */
struct TwoByteEncoding {
    const char* name; /* of the locale */
    const char* input;
    const char* charmap;
    const char* backslash; /* a character that ends in 5C */
    const char* bar;       /* a character that ends in 7C */
    const char* letter;    /* a character that ends in 41, an A */
};

inline constexpr TwoByteEncoding two_byte_encodings[] = {
    {"zh_CN.GBK", "zh_CN", "GBK", "\x81\x5C", "\x81\x7C", "\x81\x41"},
    {"zh_TW.BIG5", "zh_TW", "BIG5", "\xB3\x5C", "\xA8\x7C", "\xA4\x41"},
    {"ja_JP.SJIS", "ja_JP", "SHIFT_JIS", "\x83\x5C", "\x83\x7C", "\x83\x41"},
};

/* The locales that this process has built; a child that ends leaves them to it. */
class BuiltLocales {
  public:
    BuiltLocales() {
        if (mkdtemp(folder_.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), folder_);
        }
    }
    ~BuiltLocales() {
        std::error_code ignored;
        if (getpid() == owner_) {
            std::filesystem::remove_all(folder_, ignored);
        }
    }
    BuiltLocales(const BuiltLocales&) = delete;
    BuiltLocales& operator=(const BuiltLocales&) = delete;

    /* The folder of the locale, for LOCPATH; empty where it cannot be built. */
    std::string folder(const std::string& name, const std::string& input,
                       const std::string& charmap) {
        const auto [entry, is_new] = is_built_.try_emplace(name, false);
        if (is_new) {
            entry->second = build(name, input, charmap);
        }
        return entry->second ? folder_ : std::string();
    }

  private:
    bool build(const std::string& name, const std::string& input,
               const std::string& charmap) const {
        const std::string command = "localedef --no-archive --no-warnings=ascii -i " + input +
                                    " -f " + charmap + " '" + folder_ + "/" + name +
                                    "' >/dev/null 2>&1";
        return std::system(command.c_str()) == 0;
    }

    const pid_t owner_ = getpid();
    std::string folder_ = std::filesystem::temp_directory_path() / "wqevents.XXXXXX";
    std::map<std::string, bool> is_built_;
};

inline BuiltLocales& built_locales() {
    static BuiltLocales locales;
    return locales;
}

inline std::string built_locale_folder(const TwoByteEncoding& encoding) {
    return built_locales().folder(encoding.name, encoding.input, encoding.charmap);
}

/* A two-byte encoding as the locale of the character classes for as long as the object lives. */
class TwoByteLocale {
  public:
    explicit TwoByteLocale(const TwoByteEncoding& encoding = two_byte_encodings[0])
        : encoding_(encoding),
          folder_(built_locale_folder(encoding)),
          search_("LOCPATH", folder_.empty() ? std::getenv("LOCPATH") : folder_.c_str()),
          locale_(folder_.empty() ? nullptr : encoding.name) {}

    bool is_set() const { return locale_.is_set() && MB_CUR_MAX == 2; }
    const TwoByteEncoding& encoding() const { return encoding_; }

  private:
    const TwoByteEncoding& encoding_;
    std::string folder_;
    EnvValue search_;
    CtypeLocale locale_;
};

}  // namespace wq::test

#define REQUIRE_TWO_BYTE_LOCALE(name)                                       \
    const ::wq::test::TwoByteLocale name;                                   \
    if (!name.is_set()) {                                                   \
        if (std::getenv("CI") != nullptr) {                                 \
            FAIL() << "no locale can be built (Debian: package locales)";   \
        }                                                                   \
        GTEST_SKIP() << "no locale can be built (Debian: package locales)"; \
    }                                                                       \
    static_assert(true)

#endif
