// PostgreSQL looks at a table that changed within a minute or so, and until then answers some queries a hundred times
// as slowly. SQLite goes by the indexes alone.
#include "standin/store/statistics.h"

#include "standin/store/database.h"
#include "standin/store/records.h"
#include "standin/store/statement.h"

namespace standin {

void refreshStatistics() noexcept
{
    if (!isPostgres()) {
        return;
    }
    try {
        Connection connection;
        for (const char* szTable : {Kind<AccountRow>::kTable, Kind<Policy>::kTable, Kind<Group>::kTable,
                                    Kind<Server>::kTable, Kind<DelegateRow>::kTable}) {
            execute(connection.sql(), std::string("ANALYZE ") + szTable);
        }
    } catch (const std::runtime_error&) {
    }
}

}  // namespace standin
