// errno and a text for whatever goes wrong in the store, the errors of the databases included.
#include "store/base/errors.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <sstream>
#include <utility>

#include <soci/postgresql/soci-postgresql.h>
#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include "store/rules/acting_account.h"
#include "store/store.h"

namespace store {
namespace {

constexpr char kLocked[] = "the database is locked by others for too long";
constexpr char kNoMemory[] = "out of memory";

thread_local std::string tRefusal;

// What PostgreSQL calls the error, five characters; empty where the error is not its.
std::string sqlStateOf(const soci::soci_error& error)
{
    const auto* pPostgres = dynamic_cast<const soci::postgresql_soci_error*>(&error);
    return pPostgres == nullptr ? "" : pPostgres->sqlstate();
}

std::string sqlStateOfException()
{
    try {
        throw;
    } catch (const soci::soci_error& error) {
        return sqlStateOf(error);
    } catch (...) {
        return "";
    }
}

bool isGivenUp(const std::string& sqlState)
{
    return sqlState == "40001" || sqlState == "40P01";  // not serializable; a deadlock
}

int errnoOfDatabase(const soci::soci_error& error)
{
    if (const auto* pSqlite = dynamic_cast<const soci::sqlite3_soci_error*>(&error)) {
        const int primary = pSqlite->result() & 0xff;  // the bits above tell variants of the code apart
        return primary == SQLITE_BUSY || primary == SQLITE_LOCKED ? EBUSY : primary == SQLITE_NOMEM ? ENOMEM : EIO;
    }
    const std::string state = sqlStateOf(error);
    return isGivenUp(state) || state == "55P03" ? EBUSY : EIO;  // 55P03: the lock did not come free in time
}

// What the database says, on one line, without the statement that it quotes.
std::string textOfDatabase(const soci::soci_error& error)
{
    const int code = errnoOfDatabase(error);
    if (code != EIO) {
        return code == EBUSY ? kLocked : kNoMemory;
    }
    const auto* pSqlite = dynamic_cast<const soci::sqlite3_soci_error*>(&error);
    if (pSqlite != nullptr && pSqlite->result() == SQLITE_NOTADB) {
        return "not a store: the file is not a database";
    }
    std::string text = error.get_error_message();
    for (const char* szEnd : {"\nLINE ", " while preparing ", " while executing "}) {
        text.resize(std::min(text.find(szEnd), text.size()));
    }
    return "the database reports: " + onOneLine(text);
}

}  // namespace

Refusal::Refusal(int errnoValue, const std::string& why) : std::runtime_error(why), code(errnoValue) {}

InvalidInput::InvalidInput(std::string_view place, std::string_view why)
    : std::runtime_error(std::string(place) + ": " + std::string(why))
{
}

Refusal changedSinceRead()
{
    return Refusal(EAGAIN, "changed by someone else since it was read");
}

void require(bool condition, int errnoValue, const char* szWhy)
{
    if (!condition) {
        throw Refusal(errnoValue, szWhy != nullptr ? szWhy : errnoValue == EBUSY ? kLocked : std::strerror(errnoValue));
    }
}

void requireValid(bool condition, std::string_view place, std::string_view why)
{
    if (!condition) {
        throw InvalidInput(place, why);
    }
}

int errnoOfException()
{
    try {
        throw;
    } catch (const Refusal& refusal) {
        return refusal.code;
    } catch (const InvalidInput&) {
        return EINVAL;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    } catch (const soci::soci_error& error) {
        return errnoOfDatabase(error);
    } catch (...) {
        return EIO;
    }
}

bool isToBeRepeated()
{
    return isGivenUp(sqlStateOfException());
}

bool isOutcomeUnknown()
{
    return sqlStateOfException() == "40003";
}

std::string textOfException()
{
    try {
        throw;
    } catch (const soci::soci_error& error) {
        return textOfDatabase(error);
    } catch (const std::bad_alloc&) {
        return kNoMemory;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "an unknown failure";
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

void forgetRefusal() noexcept
{
    tRefusal.clear();
}

int keepRefusal() noexcept
{
    const int code = errnoOfException();
    try {
        tRefusal = textOfException();
        if (hasCommitted() && (code == EIO || code == EBUSY)) {
            tRefusal += "; what the request had changed before stays changed";
        }
    } catch (...) {
        tRefusal.clear();  // there is no memory left for the text
    }
    return code;
}

std::string takeRefusal()
{
    return std::exchange(tRefusal, std::string());
}

}  // namespace store
