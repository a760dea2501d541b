// The two listings: the whole visible tree with its snapshot, and one sorted page of the topmost visible groups.
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>
#include <map>
#include <unordered_set>

#include "store/nodes/listing_snapshot.h"
#include "store/records/delegates.h"
#include "store/records/policy_links.h"
#include "store/records/rows.h"
#include "store/rules/rights.h"

namespace store {
namespace {

// --- The query

// The number of that key, the fallback when the hash lacks it. Throws InvalidInput outside the range.
int64_t numberOf(const VLIBCSzHash* pHash, const char* szKey, int64_t least, int64_t most, int64_t fallback)
{
    const char* szText = VLIBCSzHashGetValue(pHash, szKey);
    if (szText == nullptr) {
        return fallback;
    }
    int64_t value = 0;
    const char* szEnd = szText + std::strlen(szText);
    const auto [stop, error] = std::from_chars(szText, szEnd, value);
    if (error != std::errc() || stop != szEnd || value < least || value > most) {
        throw InvalidInput(szKey, "not a whole number from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return value;
}

// The uid of the account that asks, -1 when the query names none.
int64_t askingUid(const VLIBCSzHash* pHash)
{
    const int64_t uid = numberOf(pHash, "ugid", 0, UINT32_MAX, -1);
    return numberOf(pHash, "user_type", kLoginUserType, kLoginUserType, -1) == -1 ? -1 : uid;
}

struct Choice {
    const char* szValue;
    const char* szSql;
};

constexpr Choice kSortBy[] = {{"id", "id"}, {"name", "name"}, {"mtime", "mtime"}};
constexpr Choice kDirections[] = {{"asc", "ASC"}, {"desc", "DESC"}};

// The SQL of the value of that key, of the first choice when the hash lacks it. Throws InvalidInput for another.
template <size_t kCount>
std::string sqlOf(const VLIBCSzHash* pHash, const char* szKey, const Choice (&choices)[kCount],
                  int (*pCompare)(const char*, const char*))
{
    const char* szValue = VLIBCSzHashGetValue(pHash, szKey);
    if (szValue == nullptr) {
        return choices[0].szSql;
    }
    const Choice* pFound = std::find_if(std::begin(choices), std::end(choices),
                                        [&](const Choice& choice) { return pCompare(choice.szValue, szValue) == 0; });
    requireValid(pFound != std::end(choices), szKey, "not one of the values that it may have");
    return pFound->szSql;
}

// --- What the account may see, as SQL

struct View {
    std::string with;    // text before SELECT
    std::string groups;  // conditions that end in the groups, servers and topmost groups it sees
    std::string servers;
    std::string topmost;
    std::string delegates;            // condition that ends in the delegates of these groups and servers
    std::vector<int64_t> parameters;  // of the text before SELECT
};

View viewOf(Role role, int64_t uid)
{
    if (role == Role::administrator) {
        return {"", "WHERE id <> 0", "", "WHERE id <> 0 AND parent_id = 0", "", {}};
    }
    const std::string seen = "IN (SELECT id FROM seen)";
    const std::string groups = "WHERE id <> 0 AND id " + seen;
    const std::string servers = "WHERE parent_id " + seen;
    return {kSeenGroups,
            groups,
            servers,
            groups + " AND (parent_id = 0 OR parent_id NOT " + seen + ")",
            "WHERE (node_type = " + std::to_string(VELQ_ZEM_TYPE_OU) + " AND node_id " + seen + ") OR (node_type = " +
                std::to_string(kServerType) + " AND node_id IN (SELECT id FROM kx " + servers + "))",
            {uid}};
}

// --- The tree

struct Tree {
    Chain<Group> pGroups;
    Chain<Server> pServers;
    Chain<Policy> pPolicies;
    std::unique_ptr<ListingSnapshot> pSnapshot = std::make_unique<ListingSnapshot>();
};

template <typename R>
void addLinks(const Chain<R>& pHead, std::unordered_set<int64_t>& policyIds)
{
    for (const R* pRecord = pHead.get(); pRecord != nullptr; pRecord = pRecord->pNext) {
        if (!pRecord->linkedGpo.empty()) {
            const std::vector<int64_t> ids = parseLinkIds(pRecord->linkedGpo.c_str());
            policyIds.insert(ids.begin(), ids.end());
        }
    }
}

// The policies that stand where the account sees servers, and those that its groups and servers link.
std::map<int64_t, Policy> readSeenPolicies(soci::session& sql, const View& view, const Tree& tree)
{
    std::map<int64_t, Policy> policies;
    const auto add = [&policies](Reader<Policy>&& reader) {
        for (Policy policy; reader.next(policy);) {
            policies.emplace(policy.id, policy);
        }
    };
    add(Reader<Policy>(sql, view.with, view.servers, view.parameters));
    std::unordered_set<int64_t> linked;
    addLinks(tree.pGroups, linked);
    addLinks(tree.pServers, linked);
    std::erase_if(linked, [&policies](int64_t id) { return policies.contains(id); });
    for (const std::string& condition : conditionsFor("id", {linked.begin(), linked.end()})) {
        add(Reader<Policy>(sql, "", "WHERE " + condition));
    }
    return policies;
}

void readPolicies(soci::session& sql, Role role, const View& view, Tree& tree)
{
    if (role == Role::administrator) {
        tree.pPolicies = readChain(Reader<Policy>(sql, "", "ORDER BY id"));
    } else {
        tree.pPolicies = chainOf(readSeenPolicies(sql, view, tree));
    }
    for (const Policy* pPolicy = tree.pPolicies.get(); pPolicy != nullptr; pPolicy = pPolicy->pNext) {
        tree.pSnapshot->policies.emplace(pPolicy->id, *pPolicy);
    }
}

void readDelegates(soci::session& sql, const View& view, ListingSnapshot& snapshot)
{
    Reader<DelegateRow> delegates(sql, view.with, view.delegates + " ORDER BY node_type, node_id, position",
                                  view.parameters);
    for (DelegateRow row; delegates.next(row);) {
        snapshot.delegates[static_cast<int>(row.nodeType)][row.nodeId].push_back(delegateOf(row));
    }
    Reader<AccountRow> accounts(sql, view.with, "WHERE uid IN (SELECT ugid FROM delegate " + view.delegates + ")",
                                view.parameters);
    for (AccountRow account; accounts.next(account);) {
        snapshot.extraInfo.emplace(account.uid, extraInfoOf(account));
    }
}

Tree readTree(soci::session& sql, int64_t uid)
{
    Tree tree;
    const Role role = roleOf(sql, uid);
    if (role == Role::unknown) {
        return tree;
    }
    const View view = viewOf(role, uid);
    tree.pGroups = readChain(Reader<Group>(sql, view.with, view.groups + " ORDER BY id", view.parameters));
    tree.pServers = readChain(Reader<Server>(sql, view.with, view.servers + " ORDER BY id", view.parameters));
    readPolicies(sql, role, view, tree);
    readDelegates(sql, view, *tree.pSnapshot);
    return tree;
}

// --- One level

struct Page {
    int64_t uid;
    int64_t offset;
    int64_t limit;
    std::string order;
};

Page pageOf(const VLIBCSzHash* pHash)
{
    return {askingUid(pHash), numberOf(pHash, "offset", 0, INT64_MAX, 0),
            numberOf(pHash, "limit", 1, INT64_MAX, INT64_MAX),
            " ORDER BY " + sqlOf(pHash, "sort_by", kSortBy, std::strcmp) + " " +
                sqlOf(pHash, "sort_direction", kDirections, strcasecmp) + ", id"};
}

struct Level {
    Chain<Group> pGroups;
    int64_t count = 0;
    int64_t total = 0;
};

Level readLevel(soci::session& sql, const Page& page)
{
    Level level;
    const Role role = roleOf(sql, page.uid);
    if (role == Role::unknown) {
        return level;
    }
    const View view = viewOf(role, page.uid);
    level.total = number(sql, view.with + "SELECT COUNT(*) FROM ou " + view.topmost, view.parameters);
    level.pGroups = readChain(Reader<Group>(sql, view.with, view.topmost + page.order + " LIMIT :limit OFFSET :offset",
                                            view.parameters, page.limit, page.offset));
    for (const Group* pGroup = level.pGroups.get(); pGroup != nullptr; pGroup = pGroup->pNext) {
        ++level.count;
    }
    return level;
}

void giveNumber(int64_t value, int* pTarget)
{
    if (pTarget != nullptr) {
        *pTarget = static_cast<int>(std::min<int64_t>(value, INT_MAX));
    }
}

}  // namespace
}  // namespace store

using namespace store;

int VELQZEMListTreeByUidHash(VLIBCSzHash* pHash, _tag_velq_zem_ou_** ppOu, _tag_velq_zem_kx_** ppKx,
                             _tag_velq_zem_gpo_** ppGpo)
{
    dropSnapshot();
    return toErrno([&] {
        requireArguments(pHash, ppOu, ppKx, ppGpo);
        const int64_t uid = askingUid(pHash);
        Tree tree = inTransaction(Access::read, [uid](soci::session& sql) { return readTree(sql, uid); });
        tree.pSnapshot->heads = {tree.pGroups.get(), tree.pServers.get(), tree.pPolicies.get()};
        keepSnapshot(std::move(tree.pSnapshot));
        *ppOu = tree.pGroups.release();
        *ppKx = tree.pServers.release();
        *ppGpo = tree.pPolicies.release();
    });
}

int VELQZEMListOneLevelByUidHash(VLIBCSzHash* pHash, _tag_velq_zem_ou_** ppHead, int* pTotal, int* pCount)
{
    return toErrno([&] {
        requireArguments(pHash, ppHead);
        const Page page = pageOf(pHash);
        Level level = inTransaction(Access::read, [&page](soci::session& sql) { return readLevel(sql, page); });
        giveNumber(level.total, pTotal);
        giveNumber(level.count, pCount);
        *ppHead = level.pGroups.release();
    });
}
