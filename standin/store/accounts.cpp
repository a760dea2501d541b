// Who may log in.
#include "standin/store/rows.h"

namespace standin {

std::optional<Account> findAccountByName(const std::string& name)
{
    return explained([&]() -> std::optional<Account> {
        Transaction transaction(Access::read);
        AccountRow row;
        if (!Reader<AccountRow>(transaction.sql(), "", "WHERE name = :name", name).next(row)) {
            return std::nullopt;
        }
        return Account{static_cast<uint32_t>(row.uid), row.name.c_str()};
    });
}

bool hasAccounts()
{
    return explained([] {
        Transaction transaction(Access::read);
        return number(transaction.sql(), "SELECT COUNT(*) FROM account") > 0;
    });
}

}  // namespace standin
