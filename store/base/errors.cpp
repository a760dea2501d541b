// Makes the store's errors, and derives an errno value and a text from any exception.
#include "store/base/errors.h"

#include <new>
#include <sstream>
#include <utility>

#include "store/store.h"

namespace store {
namespace {

int errnoOfException()
{
    try {
        throw;
    } catch (const Error& error) {
        return error.code;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    } catch (...) {
        return EIO;
    }
}

Cause causeOfException()
{
    try {
        throw;
    } catch (const Error& error) {
        return {nameOf(error.reason), error.member, error.what()};
    } catch (const std::bad_alloc&) {
        return {nameOf(Reason::failed), "", kNoMemory};
    } catch (const std::exception& error) {
        return {nameOf(Reason::failed), "", error.what()};
    } catch (...) {
        return {nameOf(Reason::failed), "", "an unknown failure"};
    }
}

}  // namespace

const char* nameOf(Reason reason)
{
    static constexpr const char* kNames[] = {
        "missing",   "malformed", "not_permitted", "unknown_node", "unknown_policy", "unknown_account",
        "duplicate", "stale",     "too_deep",      "cycle",        "too_long",       "too_many",
        "quota",     "busy",      "away",          "cancelled",    "failed"};
    return kNames[static_cast<size_t>(reason)];
}

Reason reasonOf(int errnoValue)
{
    switch (errnoValue) {
        case EINVAL:
            return Reason::malformed;
        case EACCES:
            return Reason::notPermitted;
        case ENOENT:
            return Reason::unknownNode;
        case EEXIST:
            return Reason::duplicate;
        case EAGAIN:
            return Reason::stale;
        case EBUSY:
            return Reason::busy;
        case ECANCELED:
            return Reason::cancelled;
        default:
            return Reason::failed;
    }
}

Error::Error(int errnoValue, Reason why, std::string_view place, std::string_view text)
    : std::runtime_error(escapeUnseen(std::string(place) + (place.empty() ? "" : ": ") + std::string(text))),
      code(errnoValue),
      reason(why),
      member(place)
{
}

InvalidInput::InvalidInput(std::string_view place, std::string_view why, Reason invalid)
    : Error(EINVAL, invalid, place, why)
{
}

Refusal changedSinceRead()
{
    return Refusal(EAGAIN, "changed by someone else since it was read");
}

void require(bool condition, int errnoValue, const char* szWhy)
{
    if (!condition) {
        throw Refusal(errnoValue, szWhy);
    }
}

void requireValid(bool condition, std::string_view place, std::string_view why, Reason reason)
{
    if (!condition) {
        throw InvalidInput(place, why, reason);
    }
}

void requireAnswer(bool isAnswering)
{
    if (!isAnswering) {
        throw Refusal(EIO, Reason::away, "", kNoAnswer);
    }
}

std::string onOneLine(const std::string& text)
{
    std::string line, word;
    for (std::istringstream words(text); words >> word;) {
        line += (line.empty() ? "" : " ") + word;
    }
    return line;
}

int keepRefusal() noexcept
{
    const int code = errnoOfException();
    ThreadState& state = threadState();
    try {
        state.refusal = causeOfException();
        if (state.actingUid && state.changes > 0 && (code == EIO || code == EBUSY)) {
            const bool isDurable = code == EBUSY || !state.reconnects;
            state.refusal.text += "; what the request had changed before ";
            state.refusal.text += isDurable ? "stays changed" : "may be there now or not";
        }
    } catch (...) {
        state.refusal = {};  // no memory for the text
    }
    return code;
}

Cause takeRefusal()
{
    return std::exchange(threadState().refusal, Cause());
}

}  // namespace store
