// Reads the error codes of SQLite and PostgreSQL.
#include "store/sql/database_error.h"

#include <algorithm>
#include <string>

#include <soci/postgresql/soci-postgresql.h>
#include <soci/sqlite3/soci-sqlite3.h>

namespace store {
namespace {

// Returns PostgreSQL's code for the error, five characters; empty when the error is not PostgreSQL's.
std::string sqlStateOf(const soci::soci_error& error)
{
    const auto* pPostgres = dynamic_cast<const soci::postgresql_soci_error*>(&error);
    return pPostgres == nullptr ? "" : pPostgres->sqlstate();
}

bool isGivenUp(const std::string& sqlState)
{
    return sqlState == "40001" || sqlState == "40P01";  // not serializable; a deadlock
}

int errnoOf(const soci::soci_error& error)
{
    if (const auto* pSqlite = dynamic_cast<const soci::sqlite3_soci_error*>(&error)) {
        const int primary = pSqlite->result() & 0xff;  // the higher bits distinguish variants of the code
        return primary == SQLITE_BUSY || primary == SQLITE_LOCKED ? EBUSY : primary == SQLITE_NOMEM ? ENOMEM : EIO;
    }
    const std::string state = sqlStateOf(error);
    return isGivenUp(state) || state == "55P03" ? EBUSY : EIO;  // 55P03: the lock did not come free in time
}

bool isOfOtherFile(const soci::soci_error& error)
{
    const auto* pSqlite = dynamic_cast<const soci::sqlite3_soci_error*>(&error);
    return pSqlite != nullptr && pSqlite->result() == SQLITE_NOTADB;
}

std::string textOf(const soci::soci_error& error)
{
    const int code = errnoOf(error);
    if (code != EIO) {
        return code == EBUSY ? kLocked : kNoMemory;
    }
    if (isOfOtherFile(error)) {
        return "not a store: the file is not a database";
    }
    const auto* pSqlite = dynamic_cast<const soci::sqlite3_soci_error*>(&error);
    if (pSqlite != nullptr && (pSqlite->result() & 0xff) == SQLITE_READONLY) {
        return "the store can only be read: this account may not write its file";
    }
    std::string text = error.get_error_message();
    for (const char* szEnd : {"\nLINE ", " while preparing ", " while executing "}) {
        text.resize(std::min(text.find(szEnd), text.size()));
    }
    return "the database reports: " + onOneLine(text);
}

}  // namespace

DatabaseError::DatabaseError(const soci::soci_error& error)
    : Error(errnoOf(error), textOf(error)),
      isWorthRepeating(isGivenUp(sqlStateOf(error))),
      isOutcomeUnknown(sqlStateOf(error) == "40003"),
      isOtherFile(isOfOtherFile(error))
{
}

}  // namespace store
