// PostgreSQL looks at a table that changed within a minute or so, and until then answers some queries a hundred times
// as slowly. SQLite goes by the indexes alone.
//
// What hangs below a group is found by an index. How much that is differs from group to group, and by the average,
// which the root and a few others raise, PostgreSQL would rather read the whole table. So it is told that it is little,
// two records of a kind: of one it would take the wrong index for siblings of one name.
#include "store/records/analyze.h"

#include "store/db/database.h"
#include "store/db/statement.h"
#include "store/records/records.h"

namespace store {
namespace {

// A database that is not PostgreSQL itself may know one of the statements only.
void tryOnce(const std::string& query) noexcept
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
    for (const char* szTable : {Kind<Policy>::kTable, Kind<Group>::kTable, Kind<Server>::kTable}) {
        tryOnce(std::string("ALTER TABLE ") + szTable + " ALTER COLUMN parent_id SET (n_distinct = -0.5)");
    }
    for (const char* szTable : {Kind<AccountRow>::kTable, Kind<Policy>::kTable, Kind<Group>::kTable,
                                Kind<Server>::kTable, Kind<DelegateRow>::kTable}) {
        tryOnce(std::string("ANALYZE ") + szTable);
    }
}

}  // namespace store
