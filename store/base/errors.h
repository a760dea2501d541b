// Declares the store's errors. The store's functions throw one of them, and toErrno() turns any exception into errno
// and the result -1 where a function of the platform ends.
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

// Why a call failed, for programs. nameOf() gives the words that clients get.
enum class Reason {
    missing,        // a value that is required is missing or empty
    malformed,      // a value cannot be used
    notPermitted,   // the account may not do it, or nobody may
    unknownNode,    // there is no such group or server
    unknownPolicy,  // there is no such policy, or the account does not see it
    unknownAccount,
    duplicate,
    stale,  // changed by someone else since it was read
    tooDeep,
    cycle,  // a group would be below itself
    tooLong,
    tooMany,
    quota,      // the account would manage more than setQuota() of store.h allows
    busy,       // locked by others for too long
    away,       // the database does not answer
    cancelled,  // the request had to end before its next change
    failed,
};

const char* nameOf(Reason reason);

// Returns the reason that an errno value stands for by itself.
Reason reasonOf(int errnoValue);

// An error with the errno value that the caller of the platform's function gets. what(): one line for people, which
// begins with the member. member: the path of the member of the record that is at fault, empty when none is.
struct Error : std::runtime_error {
    Error(int errnoValue, const std::string& why) : Error(errnoValue, reasonOf(errnoValue), "", why) {}
    Error(int errnoValue, Reason reason, std::string_view member, std::string_view why);
    int code;
    Reason reason;
    std::string member;
};

// The call is refused: a record that it needs does not exist, or the change is not allowed or not possible now.
struct Refusal : Error {
    using Error::Error;
};

// A JSON value or a text cannot be used: EINVAL. place: path of the member, such as "delegate[1].ugid". why: a text for
// people.
struct InvalidInput : Error {
    InvalidInput(std::string_view place, std::string_view why, Reason reason = Reason::malformed);
};

// No store exists at the place from which one was to be opened.
struct NoStore : std::runtime_error {
    using runtime_error::runtime_error;
};

// Texts of errors that are thrown in several places.
constexpr char kNoAnswer[] = "the database does not answer";
constexpr char kLocked[] = "the database is locked by others for too long";
constexpr char kSharedProcess[] =
    "the connections do not keep their processes of the database server: a pooler in between needs session mode";
constexpr char kNoMemory[] = "out of memory";

// Returns the refusal of a record that was changed since the sender read it: EAGAIN.
Refusal changedSinceRead();

// Throws Refusal with that errno value unless the condition holds.
void require(bool condition, int errnoValue, const char* szWhy);

// Throws Refusal EINVAL if one of the pointers is null.
template <typename... Pointers>
void requireArguments(const Pointers*... pointers)
{
    require(((pointers != nullptr) && ...), EINVAL, "a null argument");
}

// Throws InvalidInput, with the place, unless the condition holds.
void requireValid(bool condition, std::string_view place, std::string_view why, Reason reason = Reason::malformed);

// Throws Refusal EIO unless the database answers.
void requireAnswer(bool isAnswering);

// Returns the text on one line: each run of white space becomes one space, and none stays at the ends.
std::string onOneLine(const std::string& text);

// Stores the cause of the exception being handled as the calling thread's refusal. Call it in a catch block only.
// Returns the errno value: the error's own, ENOMEM when memory ran out, EIO for anything unknown.
int keepRefusal() noexcept;

// Runs the work, whose result is ignored. Returns 0 with errno as it was; or -1 with errno and the thread's refusal
// set.
template <typename Work>
int toErrno(Work&& work) noexcept
{
    const int saved = errno;
    threadState().refusal = {};
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
