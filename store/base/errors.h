// How a function of the store fails: its work throws Refusal, or InvalidInput for a value that cannot be used, and the
// wrapper toErrno() turns whatever was thrown into errno and -1 and keeps its text for takeRefusal().
#pragma once

#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>

namespace store {

// Of a call whose connection is lost.
constexpr char kNoAnswer[] = "the database does not answer";

// The call is refused with this errno value. why: one line for people.
struct Refusal : std::runtime_error {
    Refusal(int errnoValue, const std::string& why);
    int code;
};

// A JSON value or a text that cannot be used. place: member path of the value, "delegate[1].ugid"; why: for people.
struct InvalidInput : std::runtime_error {
    InvalidInput(std::string_view place, std::string_view why);
};

// There is no store where one was to be opened. The text is for people.
struct NoStore : std::runtime_error {
    using runtime_error::runtime_error;
};

// The refusal for a record that is another one by now: EAGAIN.
Refusal changedSinceRead();

// Throws Refusal with that errno value, and the text or else what is usually meant by the value, unless the condition
// holds.
void require(bool condition, int errnoValue, const char* szWhy = nullptr);

// Throws Refusal EINVAL unless all of the pointers point to something.
template <typename... Pointers>
void requireArguments(const Pointers*... pointers)
{
    require(((pointers != nullptr) && ...), EINVAL, "a null argument");
}

// Throws InvalidInput, with the place, unless the condition holds.
void requireValid(bool condition, std::string_view place, std::string_view why);

// The errno value for the exception being handled; to be called in a catch block only. EINVAL for InvalidInput, EBUSY,
// ENOMEM or EIO for what the database reports, EIO for anything unknown.
int errnoOfException();

// Whether the exception being handled says that the database gave up the transaction because of others, and that it may
// succeed when it is run once more; likewise.
bool isToBeRepeated();

// Whether the database itself says that it does not know whether the transaction was committed; likewise.
bool isOutcomeUnknown();

// The text for the exception being handled, one line for people, without SQL; likewise.
std::string textOfException();

// The text with one space for each run of white space, none at its ends.
std::string onOneLine(const std::string& text);

// Forgets the calling thread's refusal.
void forgetRefusal() noexcept;

// Makes the exception being handled the calling thread's refusal. Returns its errno value.
int keepRefusal() noexcept;

// Runs the work: 0 and errno as it was, or -1 with errno and the thread's refusal.
template <typename Work>
int toErrno(Work&& work) noexcept
{
    const int saved = errno;
    forgetRefusal();
    try {
        work();
        errno = saved;
        return 0;
    } catch (...) {
        errno = keepRefusal();
        return -1;
    }
}

// Runs the work of a function that throws: std::runtime_error with a text for people, whatever the database reports.
template <typename Work>
auto explained(Work&& work)
{
    try {
        return work();
    } catch (const std::runtime_error&) {
        throw std::runtime_error(textOfException());
    }
}

}  // namespace store
