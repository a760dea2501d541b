// What an account may see and manage: an administrator everything, another account the groups delegated to it and all
// below them.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include <soci/soci.h>

namespace store {

enum class Role { unknown, delegate, administrator };

// The account's standing; unknown without such an account. Runs in the caller's transaction; throws DatabaseError.
Role roleOf(soci::session& sql, int64_t uid);

// Text before a SELECT that makes "seen": the identifiers of the groups delegated to the account and of all below
// them. Its one parameter is the uid.
extern const std::string kSeenGroups;

// The rights of the calling thread's caller, as of the writing transaction in which they are made and asked: whatever
// was committed before it counts. What the caller has no right to is refused alike whether it is there or not.
class Rights {
public:
    explicit Rights(soci::session& sql);

    // The caller's name; empty without a caller, and for one that is no account.
    const std::string& accountName() const;

    // Whether everything is allowed: to an administrator, and without a caller.
    bool isUnrestricted() const;

    bool mayManage(int64_t groupId) const;

    // Throws Refusal EACCES unless the caller may manage the group. szMember: that of the record which names the group;
    // null for the group itself.
    void requireGroup(int64_t groupId, const char* szMember = nullptr) const;

    // The same for a group or a server, which is managed with its group.
    void requireNode(int nodeType, int64_t id) const;

    // Those of the policies that are there and that the caller sees: where it sees a group, or linked by a group or a
    // server that it sees.
    std::unordered_set<int64_t> seenPolicies(const std::vector<int64_t>& ids) const;

private:
    std::unordered_set<int64_t> linkedWhereSeen() const;

    soci::session& m_sql;
    int64_t m_uid = -1;
    std::string m_name;
    Role m_role = Role::administrator;
};

}  // namespace store
