/*
 * An environment variable with another value, or unset (null), for as long as the object lives.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_ENV_VALUE_H
#define WQEVENTS_TESTS_SUPPORT_ENV_VALUE_H

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace wq::test {

class EnvValue {
  public:
    EnvValue(std::string name, const char* value) : name_(std::move(name)) {
        if (const char* old = std::getenv(name_.c_str())) {
            old_ = old;
        }
        set(value);
    }
    EnvValue(std::string name, const std::string& value)
        : EnvValue(std::move(name), value.c_str()) {}
    ~EnvValue() { put(old_ ? old_->c_str() : nullptr); }
    EnvValue(const EnvValue&) = delete;
    EnvValue& operator=(const EnvValue&) = delete;

    /* Another value, or none; what was there before the object is still what comes back. */
    void set(const char* value) { put(value); }

  private:
    void put(const char* value) const {
        if (value != nullptr) {
            setenv(name_.c_str(), value, 1);
        } else {
            unsetenv(name_.c_str());
        }
    }

    std::string name_;
    std::optional<std::string> old_;
};

}  // namespace wq::test

#endif
