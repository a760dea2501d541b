// Adds, lists, revokes and looks up bearer tokens, which the store knows by their hashes only.
#include <algorithm>
#include <ctime>
#include <stdexcept>

#include "store/accounts/token_uses.h"
#include "store/base/utf8.h"
#include "store/records/json_text.h"
#include "store/records/rows.h"

namespace store {
namespace {

void checkLabel(const std::string& label)
{
    const bool isOneLine =
        std::none_of(label.begin(), label.end(), [](char c) { return (c >= 0 && c < ' ') || c == 0x7f; });
    requireValid(isPlainText(label) && isOneLine, "label", "not a line of UTF-8");
    requireValid(characterCount(label) <= kMaxNameLength, "label",
                 "longer than " + std::to_string(kMaxNameLength) + " characters");
}

// The time at which the token expires, 0 for never.
int64_t expiryOf(int64_t lifetime, int64_t now)
{
    requireValid(lifetime >= 0 && lifetime <= INT64_MAX - now, "lifetime", "not a number of seconds");
    return lifetime == 0 ? 0 : now + lifetime;
}

std::optional<Session> findValid(soci::session& sql, const std::string& tokenHash, int64_t now)
{
    int64_t uid = 0, admin = 0;
    Session session;
    Statement statement(sql);
    statement.in(tokenHash).in(now);
    statement.out(uid).out(session.account.name).out(admin).out(session.label).out(session.expires);
    statement.prepare(
        "SELECT a.uid, a.name, a.admin, t.label, t.expires FROM token t JOIN account a ON a.uid = t.uid"
        " WHERE t.hash = :hash AND (t.expires = 0 OR t.expires > :now)");
    if (!statement.first()) {
        return std::nullopt;
    }
    session.account.uid = static_cast<uint32_t>(uid);
    session.isAdministrator = admin != 0;
    return session;
}

void insertToken(soci::session& sql, int64_t uid, const std::string& tokenHash, const std::string& label, int64_t made,
                 int64_t expires)
{
    if (number(sql, "SELECT COUNT(*) FROM account WHERE uid = :uid", uid) == 0) {
        throw std::runtime_error("no account with uid " + std::to_string(uid));
    }
    change(sql,
           "INSERT INTO token (hash, uid, label, made, expires, last_used)"
           " VALUES (:hash, :uid, :label, :made, :expires, 0)",
           tokenHash, uid, label, made, expires);
}

std::vector<Token> readTokens(soci::session& sql, std::optional<uint32_t> uid)
{
    Token row;
    Statement statement(sql);
    statement.out(row.account).out(row.label).out(row.made).out(row.expires).out(row.lastUsed);
    statement.prepare(
        "SELECT a.name, t.label, t.made, t.expires, t.last_used FROM token t JOIN account a ON a.uid = t.uid" +
        (uid ? " WHERE a.uid = " + std::to_string(*uid) : std::string()) + " ORDER BY a.name, t.made, t.hash");
    std::vector<Token> tokens;
    for (bool isRow = statement.first(); isRow; isRow = statement.next()) {
        tokens.push_back(row);
    }
    return tokens;
}

}  // namespace

void addToken(uint32_t uid, const std::string& tokenHash, const std::string& label, int64_t lifetime)
{
    checkLabel(label);
    const int64_t now = std::time(nullptr);
    const int64_t expires = expiryOf(lifetime, now);
    inTransaction(Access::write, [&](soci::session& sql) { insertToken(sql, uid, tokenHash, label, now, expires); });
}

std::vector<Token> listTokens(std::optional<uint32_t> uid)
{
    return inTransaction(Access::read, [uid](soci::session& sql) { return readTokens(sql, uid); });
}

int64_t revokeTokens(uint32_t uid, const std::optional<std::string>& label)
{
    const std::string deletion = "DELETE FROM token WHERE uid = " + std::to_string(uid);
    const auto revoke = [&](soci::session& sql) {
        return label ? change(sql, deletion + " AND label = :label", *label) : change(sql, deletion);
    };
    return inTransaction(Access::write, revoke);
}

std::optional<Account> findAccountByToken(const std::string& tokenHash)
{
    const std::optional<Session> session = findSession(tokenHash);
    if (!session) {
        return std::nullopt;
    }
    noteTokenUse(tokenHash, std::time(nullptr));
    return session->account;
}

std::optional<Session> findSession(const std::string& tokenHash)
{
    const int64_t now = std::time(nullptr);
    return inTransaction(Access::read, [&](soci::session& sql) { return findValid(sql, tokenHash, now); });
}

}  // namespace store
