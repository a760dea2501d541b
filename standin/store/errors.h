// How a function of the store fails: its work throws Refusal, or BadInput for a value that cannot be used, and the
// wrapper guarded() turns whatever was thrown into errno and -1.
#pragma once

#include <cerrno>
#include <stdexcept>
#include <string_view>

namespace standin {

// The call is refused with this errno value.
struct Refusal : std::runtime_error {
    explicit Refusal(int errnoValue);
    int code;
};

// A JSON value or a text that cannot be used. place: member path of the value, "delegate[1].ugid"; why: for people.
struct BadInput : std::runtime_error {
    BadInput(std::string_view place, std::string_view why);
};

// Throws Refusal with that errno value unless the condition holds.
void require(bool condition, int errnoValue);

// Throws BadInput, with the place, unless the condition holds.
void demand(bool condition, std::string_view place, std::string_view why);

// The errno value for the exception being handled; to be called in a catch block only. EINVAL for BadInput, EBUSY,
// ENOMEM or EIO for what the database reports, EIO for anything unknown.
int errnoOfException();

// Runs the work: 0 and errno as it was, or -1 with errno.
template <typename Work>
int guarded(Work&& work) noexcept
{
    const int saved = errno;
    try {
        work();
        errno = saved;
        return 0;
    } catch (...) {
        errno = errnoOfException();
        return -1;
    }
}

}  // namespace standin
