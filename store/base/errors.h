// How the store fails: its functions throw one of the errors below, and toErrno() turns whatever was thrown into errno
// and -1 where a function of the platform ends.
//
// Three wrappers make up a function of the platform, each adding one thing:
// - toErrno(work), here: exceptions become errno and a text for takeRefusal().
// - inTransaction(access, work), db/transaction.h: the work runs in a transaction, again when the database asks for it.
// - commitChange(work), rules/change.h: both of them for a change, which is logged once it is committed.
#pragma once

#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>

#include "store/base/thread_state.h"

namespace store {

// An error with the errno value that the caller of the platform's function gets. what(): one line for people.
struct Error : std::runtime_error {
    Error(int errnoValue, const std::string& why);
    int code;
};

// The call is refused: what it asks for is not there, not allowed or not possible now.
struct Refusal : Error {
    using Error::Error;
};

// A JSON value or a text cannot be used: EINVAL. place: member path of the value, "delegate[1].ugid"; why: for people.
struct InvalidInput : Error {
    InvalidInput(std::string_view place, std::string_view why);
};

// There is no store where one was to be opened.
struct NoStore : std::runtime_error {
    using runtime_error::runtime_error;
};

// Texts that several places give.
constexpr char kNoAnswer[] = "the database does not answer";
constexpr char kLocked[] = "the database is locked by others for too long";
constexpr char kNoMemory[] = "out of memory";

// The refusal of a record that was changed since the sender read it: EAGAIN.
Refusal changedSinceRead();

// Throws Refusal with that errno value unless the condition holds.
void require(bool condition, int errnoValue, const char* szWhy);

// Throws Refusal EINVAL unless all of the pointers point to something.
template <typename... Pointers>
void requireArguments(const Pointers*... pointers)
{
    require(((pointers != nullptr) && ...), EINVAL, "a null argument");
}

// Throws InvalidInput, with the place, unless the condition holds.
void requireValid(bool condition, std::string_view place, std::string_view why);

// The text with one space for each run of white space, none at its ends.
std::string onOneLine(const std::string& text);

// Makes the exception being handled the calling thread's refusal; to be called in a catch block only. Returns its errno
// value: the error's own, ENOMEM when memory ran out, EIO for anything unknown.
int keepRefusal() noexcept;

// Runs the work, whose result is ignored. Returns 0 with errno as it was; or -1 with errno and the thread's refusal.
template <typename Work>
int toErrno(Work&& work) noexcept
{
    const int saved = errno;
    threadState().refusal.clear();
    try {
        work();
        errno = saved;
        return 0;
    } catch (...) {
        errno = keepRefusal();
        return -1;
    }
}

}  // namespace store
