// Finds accounts by name, and checks whether the store has any.
#include "store/records/rows.h"

namespace store {

std::optional<Account> findAccountByName(const std::string& name)
{
    const auto find = [&](soci::session& sql) -> std::optional<Account> {
        AccountRow row;
        if (!Reader<AccountRow>(sql, "", "WHERE name = :name", name).next(row)) {
            return std::nullopt;
        }
        return Account{static_cast<uint32_t>(row.uid), row.name.c_str()};
    };
    return inTransaction(Access::read, find);
}

bool hasAccounts()
{
    const auto count = [](soci::session& sql) { return number(sql, "SELECT COUNT(*) FROM account"); };
    return inTransaction(Access::read, count) > 0;
}

}  // namespace store
