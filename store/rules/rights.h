// Decides what an account may see and manage. An administrator sees and manages everything; any other account sees and
// manages the groups delegated to it and all groups, servers and policies below them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <soci/soci.h>

namespace store {

enum class Role { unknown, delegate, administrator };  // unknown: there is no such account

// Text before a SELECT that defines the table "visible" with the column "id": the groups delegated to an account and
// all groups below them. Its one parameter is the account's uid.
extern const std::string kVisibleGroups;

// The rights of one account within one transaction. An object asks the database once for each group and remembers the
// answer. A group or server that the account may not manage is refused alike whether it exists or not. Used by the
// thread of the transaction; every function may throw DatabaseError.
class Rights {
public:
    // The rights of the calling thread's acting account; without one everything is allowed. Throws Refusal ECANCELED
    // when the token of its request is not valid any more.
    explicit Rights(soci::session& sql);

    // The rights of the account with that uid; without a uid everything is allowed.
    Rights(soci::session& sql, std::optional<int64_t> uid);

    Role role() const;

    // Returns the account's name, empty without an acting account and for a uid that no account has.
    const std::string& accountName() const;

    // Returns whether everything is allowed: for an administrator, and without an acting account.
    bool isUnrestricted() const;

    // Returns whether the account may manage any group.
    bool managesAnything() const;

    // Returns whether the account may manage the group. A restricted account may manage only groups that exist.
    bool mayManage(int64_t groupId) const;

    // Throws Refusal EACCES unless the account may manage the group. szMember: the record's member that names the
    // group, for the text; empty when the call itself names it.
    void requireGroup(int64_t groupId, const char* szMember = "") const;

    // Throws in the same way for a group or a server. A server is managed with its group.
    void requireNode(int nodeType, int64_t id) const;

    // Returns those of the policies that exist and that the account sees: a restricted account sees the policies below
    // the visible groups and those that a visible group or server links.
    std::unordered_set<int64_t> visiblePolicies(const std::vector<int64_t>& ids) const;

private:
    soci::session& m_sql;
    const int64_t m_uid;  // -1: none
    std::string m_name;
    const Role m_role;
    mutable std::unordered_map<int64_t, bool> m_manageable;  // the answers of mayManage() so far, by group
};

}  // namespace store
