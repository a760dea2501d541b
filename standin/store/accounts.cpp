// Who may log in: accounts by name or by the hash of their bearer token.
#include <stdexcept>

#include "standin/store/rows.h"

namespace standin {
namespace {

std::optional<Account> findAccount(const std::string& where, const std::string& text)
{
    Transaction transaction(Access::read);
    AccountRow row;
    if (!Reader<AccountRow>(transaction.sql(), "", where, text).next(row)) {
        return std::nullopt;
    }
    return Account{static_cast<uint32_t>(row.uid), row.name.c_str()};
}

}  // namespace

std::optional<Account> findAccountByName(const std::string& name)
{
    return findAccount("WHERE name = :name", name);
}

std::optional<Account> findAccountByToken(const std::string& tokenHash)
{
    return findAccount("WHERE token_hash = :hash", tokenHash);
}

void setAccountToken(uint32_t uid, const std::string& tokenHash)
{
    Transaction transaction(Access::write);
    const int64_t rows = change(transaction.sql(), "UPDATE account SET token_hash = :hash WHERE uid = :uid", tokenHash,
                                static_cast<int64_t>(uid));
    if (rows != 1) {
        throw std::runtime_error("no account with uid " + std::to_string(uid));
    }
    transaction.commit();
}

}  // namespace standin
