// Environment variables of the process, for the time of a test.
#pragma once

#include <cstdlib>
#include <string>

namespace kqtest {

// Sets a variable, or takes it away for an empty value, and puts the old value back at its end.
class Variable {
public:
    Variable(const char* name, const std::string& value) : name_(name) {
        const char* old = std::getenv(name);
        old_ = old ? old : "";
        Put(value);
    }

    ~Variable() { Put(old_); }

    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    void Put(const std::string& value) {
#if defined(_WIN32)
        _putenv_s(name_.c_str(), value.c_str());
#else
        if (value.empty())
            unsetenv(name_.c_str());
        else
            setenv(name_.c_str(), value.c_str(), 1);
#endif
    }

    std::string name_;
    std::string old_;
};

}   // namespace kqtest
