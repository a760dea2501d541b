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

std::string textOfException()
{
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return kNoMemory;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "an unknown failure";
    }
}

}  // namespace

Error::Error(int errnoValue, const std::string& why) : std::runtime_error(why), code(errnoValue) {}

InvalidInput::InvalidInput(std::string_view place, std::string_view why)
    : Error(EINVAL, std::string(place) + ": " + std::string(why))
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

void requireValid(bool condition, std::string_view place, std::string_view why)
{
    if (!condition) {
        throw InvalidInput(place, why);
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
        state.refusal = textOfException();
        if (state.actingUid && state.hasCommitted && (code == EIO || code == EBUSY)) {
            state.refusal += "; what the request had changed before stays changed";
        }
    } catch (...) {
        state.refusal.clear();  // no memory for the text
    }
    return code;
}

std::string takeRefusal()
{
    return std::exchange(threadState().refusal, std::string());
}

}  // namespace store
