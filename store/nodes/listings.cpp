// Lists the nodes that an account sees: the whole tree, of which the thread keeps a snapshot, or one sorted page of the
// topmost groups.
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>
#include <map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "store/nodes/listing_snapshot.h"
#include "store/records/delegates.h"
#include "store/records/policy_links.h"
#include "store/records/rows.h"
#include "store/rules/rights.h"

namespace store {
namespace {

// --- The query

// Returns the number of that key, or the fallback when the query lacks the key. Throws InvalidInput for a text that is
// not a number in the range.
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

// Returns the uid of the account that the query lists for, -1 when it names none.
int64_t accountOf(const VLIBCSzHash* pHash)
{
    const int64_t uid = numberOf(pHash, "ugid", 0, UINT32_MAX, -1);
    return numberOf(pHash, "user_type", kLoginUserType, kLoginUserType, -1) == -1 ? -1 : uid;
}

// A value that a key of the query may have, and its SQL.
struct Choice {
    const char* szValue;
    const char* szSql;
};

constexpr Choice kSortBy[] = {{"id", "id"}, {"name", "name"}, {"mtime", "mtime"}};
constexpr Choice kDirections[] = {{"asc", "ASC"}, {"desc", "DESC"}};

// Returns the SQL for the value of that key, or that of the first choice when the query lacks the key. Throws
// InvalidInput for another value.
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

// --- The nodes that the account sees, as SQL

struct VisibleNodes {
    std::string with;                 // text before SELECT, to which the conditions refer
    std::vector<int64_t> parameters;  // of that text
    std::string groups;               // conditions, empty where all rows are visible
    std::string servers;              // also the condition of the policies below visible groups
    std::string topmostGroups;
    std::string delegates;  // of the visible groups and servers
};

VisibleNodes visibleNodes(const Rights& rights, int64_t uid)
{
    VisibleNodes visible;
    if (rights.isUnrestricted()) {
        visible.groups = "WHERE id <> 0";
        visible.topmostGroups = "WHERE id <> 0 AND parent_id = 0";
        return visible;
    }
    const std::string inVisible = "IN (SELECT id FROM visible)";
    visible.with = kVisibleGroups;
    visible.parameters = {uid};
    visible.groups = "WHERE id <> 0 AND id " + inVisible;
    visible.servers = "WHERE parent_id " + inVisible;
    visible.topmostGroups = visible.groups + " AND (parent_id = 0 OR parent_id NOT " + inVisible + ")";
    visible.delegates = "WHERE (node_type = " + std::to_string(VELQ_ZEM_TYPE_OU) + " AND node_id " + inVisible +
                        ") OR (node_type = " + std::to_string(kServerType) + " AND node_id IN (SELECT id FROM kx " +
                        visible.servers + "))";
    return visible;
}

// --- The tree

constexpr size_t kMaxLevels = size_t{2} * kMaxGroupDepth;  // of groups that a listing returns

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

// Returns the index of the group with that identifier, the size of the list when there is none.
size_t indexOf(const std::vector<const Group*>& groups, int64_t id)
{
    const auto found = std::lower_bound(groups.begin(), groups.end(), id,
                                        [](const Group* pGroup, int64_t value) { return pGroup->id < value; });
    return found == groups.end() || (*found)->id != id ? groups.size() : static_cast<size_t>(found - groups.begin());
}

// Returns how many of the other groups are above each group, as far as they are in the list, which is in the order of
// identifiers. In a cycle, any of its groups counts as the topmost.
std::vector<int> levelsOf(const std::vector<const Group*>& groups)
{
    constexpr int kUnknown = -1;
    std::vector<int> levels(groups.size(), kUnknown);
    std::vector<size_t> path;
    for (size_t start = 0; start < groups.size(); ++start) {
        int level = 0;
        for (size_t i = start; i < groups.size(); i = indexOf(groups, groups[i]->parentId)) {
            if (levels[i] != kUnknown) {
                level = levels[i] + 1;
                break;
            }
            levels[i] = 0;
            path.push_back(i);
        }
        for (; !path.empty(); path.pop_back()) {
            levels[path.back()] = level++;
        }
    }
    return levels;
}

// Removes the groups at levels that no group can have unless direct SQL put it there. Whoever reads the tree may use
// the stack at each level.
void removeTooDeep(Chain<Group>& pGroups)
{
    std::vector<const Group*> groups;
    for (const Group* pGroup = pGroups.get(); pGroup != nullptr; pGroup = pGroup->pNext) {
        groups.push_back(pGroup);
    }
    if (groups.size() <= kMaxLevels) {
        return;
    }
    const std::vector<int> levels = levelsOf(groups);
    ChainBuilder<Group> kept;
    for (size_t i = 0; i < groups.size(); ++i) {
        std::unique_ptr<Group> pGroup(pGroups.release());
        pGroups.reset(std::exchange(pGroup->pNext, nullptr));
        if (levels[i] < static_cast<int>(kMaxLevels)) {
            kept.append(std::move(pGroup));
        }
    }
    pGroups = kept.release();
}

// Returns the policies below the visible groups and those that the tree's groups and servers link.
std::map<int64_t, Policy> readVisiblePolicies(soci::session& sql, const VisibleNodes& visible, const Tree& tree)
{
    std::map<int64_t, Policy> policies;
    const auto add = [&policies](Reader<Policy>&& reader) {
        for (Policy policy; reader.next(policy);) {
            policies.emplace(policy.id, policy);
        }
    };
    add(Reader<Policy>(sql, visible.with, visible.servers, visible.parameters));
    std::unordered_set<int64_t> linked;
    addLinks(tree.pGroups, linked);
    addLinks(tree.pServers, linked);
    std::erase_if(linked, [&policies](int64_t id) { return policies.contains(id); });
    for (const std::string& condition : conditionsFor("id", {linked.begin(), linked.end()})) {
        add(Reader<Policy>(sql, "", "WHERE " + condition));
    }
    return policies;
}

void readPolicies(soci::session& sql, const Rights& rights, const VisibleNodes& visible, Tree& tree)
{
    if (rights.isUnrestricted()) {
        tree.pPolicies = readChain(Reader<Policy>(sql, "", "ORDER BY id"));
    } else {
        tree.pPolicies = chainOf(readVisiblePolicies(sql, visible, tree));
    }
    for (const Policy* pPolicy = tree.pPolicies.get(); pPolicy != nullptr; pPolicy = pPolicy->pNext) {
        tree.pSnapshot->policies.emplace(pPolicy->id, *pPolicy);
    }
}

void readDelegates(soci::session& sql, const VisibleNodes& visible, ListingSnapshot& snapshot)
{
    Reader<DelegateRow> delegates(sql, visible.with, visible.delegates + " ORDER BY node_type, node_id, position",
                                  visible.parameters);
    for (DelegateRow row; delegates.next(row);) {
        snapshot.delegates[static_cast<int>(row.nodeType)][row.nodeId].push_back(delegateOf(row));
    }
    Reader<AccountRow> accounts(sql, visible.with, "WHERE uid IN (SELECT ugid FROM delegate " + visible.delegates + ")",
                                visible.parameters);
    for (AccountRow account; accounts.next(account);) {
        snapshot.extraInfo.emplace(account.uid, extraInfoOf(account));
    }
}

Tree readTree(soci::session& sql, int64_t uid)
{
    Tree tree;
    const Rights rights(sql, uid);
    if (rights.role() == Role::unknown) {
        return tree;
    }
    const VisibleNodes visible = visibleNodes(rights, uid);
    tree.pGroups = readChain(Reader<Group>(sql, visible.with, visible.groups + " ORDER BY id", visible.parameters));
    removeTooDeep(tree.pGroups);
    tree.pServers = readChain(Reader<Server>(sql, visible.with, visible.servers + " ORDER BY id", visible.parameters));
    readPolicies(sql, rights, visible, tree);
    readDelegates(sql, visible, *tree.pSnapshot);
    return tree;
}

// --- One level

struct PageQuery {
    int64_t uid;
    int64_t offset;
    int64_t limit;
    std::string order;  // as SQL
};

PageQuery pageQueryOf(const VLIBCSzHash* pHash)
{
    return {accountOf(pHash), numberOf(pHash, "offset", 0, INT64_MAX, 0),
            numberOf(pHash, "limit", 1, INT64_MAX, INT64_MAX),
            " ORDER BY " + sqlOf(pHash, "sort_by", kSortBy, std::strcmp) + " " +
                sqlOf(pHash, "sort_direction", kDirections, strcasecmp) + ", id"};
}

struct GroupPage {
    Chain<Group> pGroups;
    int64_t count = 0;  // of groups on the page
    int64_t total = 0;  // of groups on all pages
};

GroupPage readPage(soci::session& sql, const PageQuery& query)
{
    GroupPage page;
    const Rights rights(sql, query.uid);
    if (rights.role() == Role::unknown) {
        return page;
    }
    const VisibleNodes visible = visibleNodes(rights, query.uid);
    page.total = number(sql, visible.with + "SELECT COUNT(*) FROM ou " + visible.topmostGroups, visible.parameters);
    page.pGroups =
        readChain(Reader<Group>(sql, visible.with, visible.topmostGroups + query.order + " LIMIT :limit OFFSET :offset",
                                visible.parameters, query.limit, query.offset));
    for (const Group* pGroup = page.pGroups.get(); pGroup != nullptr; pGroup = pGroup->pNext) {
        ++page.count;
    }
    return page;
}

void setCount(int* pTarget, int64_t value)
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
        const int64_t uid = accountOf(pHash);
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
        const PageQuery query = pageQueryOf(pHash);
        GroupPage page = inTransaction(Access::read, [&query](soci::session& sql) { return readPage(sql, query); });
        setCount(pTotal, page.total);
        setCount(pCount, page.count);
        *ppHead = page.pGroups.release();
    });
}
