// Refreshes PostgreSQL's statistics. PostgreSQL does so by itself only a minute or so after a change, and until then
// some queries take a hundred times as long. SQLite plans by the indexes alone.
#include "store/records/analyze.h"

#include "store/db/database.h"
#include "store/records/records.h"
#include "store/sql/statement.h"

namespace store {
namespace {

// A database that speaks PostgreSQL's dialect may know only some of the statements.
void executeIfPossible(const std::string& query) noexcept
{
    try {
        Connection connection;
        execute(connection.sql(), query);
    } catch (const std::runtime_error&) {
    }
}

}  // namespace

void analyzeTables() noexcept
{
    if (!isPostgres()) {
        return;
    }
    // The children of a group are found by an index. Few groups have many children, but they raise the average so far
    // that PostgreSQL would read the whole table. An estimate of two children makes it use the index; with one it would
    // use the wrong index to find siblings of one name.
    for (const char* szTable : {Kind<Policy>::kTable, Kind<Group>::kTable, Kind<Server>::kTable}) {
        executeIfPossible(std::string("ALTER TABLE ") + szTable + " ALTER COLUMN parent_id SET (n_distinct = -0.5)");
    }
    for (const char* szTable : {Kind<AccountRow>::kTable, Kind<Policy>::kTable, Kind<Group>::kTable,
                                Kind<Server>::kTable, Kind<DelegateRow>::kTable, Kind<LinkRow>::kTable}) {
        executeIfPossible(std::string("ANALYZE ") + szTable);
    }
}

}  // namespace store
