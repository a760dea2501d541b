// Finds accounts by name or uid, and checks whether the store has any.
#include "store/records/rows.h"
#include "store/rules/rights.h"

namespace store {
namespace {

// Returns a pattern of LIKE, with '!' as the escape character, that matches only the text.
std::string patternOf(const std::string& text)
{
    std::string pattern;
    for (const char c : text) {
        pattern += std::string(c == '%' || c == '_' || c == '!' ? "!" : "") + c;
    }
    return pattern;
}

std::vector<Account> findAccounts(soci::session& sql, const std::string& text)
{
    const std::string start = patternOf(text) + '%', part = '%' + start;
    // SQLite's LIKE does not distinguish the case of ASCII letters.
    const std::string isLike = isPostgres() ? " COLLATE \"C\" ILIKE " : " LIKE ";
    int64_t uid = 0;
    std::string name;
    Statement statement(sql);
    statement.in(part).in(start).in(text).out(uid).out(name);
    statement.prepare("SELECT uid, name FROM account WHERE name" + isLike +
                      ":part ESCAPE '!' OR CAST(uid AS TEXT) LIKE :start ESCAPE '!'"
                      " ORDER BY CASE WHEN CAST(uid AS TEXT) = :text THEN 0 ELSE 1 END, name LIMIT " +
                      std::to_string(kMaxFoundAccounts));
    std::vector<Account> accounts;
    for (bool isRow = statement.first(); isRow; isRow = statement.next()) {
        accounts.push_back({static_cast<uint32_t>(uid), name});
    }
    return accounts;
}

}  // namespace

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

std::optional<std::vector<Account>> searchAccounts(uint32_t askingUid, const std::string& text)
{
    const auto search = [&](soci::session& sql) -> std::optional<std::vector<Account>> {
        if (!Rights(sql, askingUid).managesAnything()) {
            return std::nullopt;
        }
        return findAccounts(sql, text);
    };
    return inTransaction(Access::read, search);
}

std::vector<AccountRights> listAccounts()
{
    return inTransaction(Access::read, [](soci::session& sql) {
        int64_t uid = 0, admin = 0;
        AccountRights rights;
        Statement statement(sql);
        statement.out(uid).out(rights.account.name).out(admin).out(rights.groups);
        statement.prepare("SELECT uid, name, admin, (SELECT COUNT(*) FROM delegate WHERE ugid = uid AND node_type = " +
                          std::to_string(VELQ_ZEM_TYPE_OU) + ") FROM account ORDER BY name");
        std::vector<AccountRights> accounts;
        for (bool isRow = statement.first(); isRow; isRow = statement.next()) {
            rights.account.uid = static_cast<uint32_t>(uid);
            rights.isAdministrator = admin != 0;
            accounts.push_back(rights);
        }
        return accounts;
    });
}

bool hasAccounts()
{
    const auto count = [](soci::session& sql) { return number(sql, "SELECT COUNT(*) FROM account"); };
    return inTransaction(Access::read, count) > 0;
}

}  // namespace store
