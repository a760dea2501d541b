// Reads pages of the history, and decides who may see what of it: an administrator sees everything; any other account
// sees the changes of a record that it manages now, also those from before it did. The path of such a change begins
// with the topmost group of it below which the account manages everything now, so that it shows no group that was or is
// above or beside the account's own.
#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <set>
#include <stdexcept>
#include <string_view>

#include "store/history/recorder.h"
#include "store/records/json_text.h"

namespace store {
namespace {

constexpr Json::ArrayIndex kPageSize = 50;  // changes
constexpr size_t kBatchSize = 51;           // rows that are read at a time

struct Node {
    std::string kind;
    int64_t id;
};

// The place where a page begins: after that many changes of the row with that number. A place stays valid while newer
// rows are added and older ones deleted.
struct Place {
    int64_t row = std::numeric_limits<int64_t>::max();
    int64_t done = 0;
};

// Returns whether the whole text is a number, which is written to value.
bool readNumber(std::string_view text, int64_t& value)
{
    const auto [pEnd, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && pEnd == text.data() + text.size();
}

Node nodeOf(const std::string& text)
{
    static const std::set<std::string> kKinds = {Kind<Group>::kName, Kind<Server>::kName, Kind<Policy>::kName,
                                                 Kind<AccountRow>::kName};
    const size_t colon = text.find(':');
    Node node{text.substr(0, colon), 0};
    if (colon == text.npos || !kKinds.contains(node.kind) || !readNumber(text.substr(colon + 1), node.id)) {
        throw std::invalid_argument("node: not group, server, policy or account with a colon and an identifier");
    }
    return node;
}

Place placeOf(const std::string& text)
{
    Place place;
    const size_t dot = text.find('.');
    if (dot == text.npos || !readNumber(std::string_view(text).substr(0, dot), place.row) ||
        !readNumber(std::string_view(text).substr(dot + 1), place.done)) {
        throw std::invalid_argument("before: not the \"next\" of a page");
    }
    return place;
}

bool maySee(soci::session& sql, const Rights& rights, const std::optional<Node>& node)
{
    if (rights.isUnrestricted() || !node || node->kind == Kind<AccountRow>::kName) {
        return rights.isUnrestricted();
    }
    if (node->kind == Kind<Group>::kName) {
        return rights.mayManage(node->id);
    }
    const std::string table = node->kind == Kind<Server>::kName ? Kind<Server>::kTable : Kind<Policy>::kTable;
    const auto groups = numbers(sql, "SELECT parent_id FROM " + table + " WHERE id = :id", node->id);
    return std::any_of(groups.begin(), groups.end(), [&](int64_t id) { return rights.mayManage(id); });
}

// Returns the parts of a text between slashes that no backslash precedes.
std::vector<std::string> partsOf(const std::string& text)
{
    std::vector<std::string> parts(text.empty() ? 0 : 1);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '/') {
            parts.emplace_back();
            continue;
        }
        parts.back() += text[i];
        if (text[i] == '\\' && i + 1 < text.size()) {
            parts.back() += text[++i];
        }
    }
    return parts;
}

// Returns the path of the groups above a record as far as the account may see it, with a slash at its end unless it is
// empty.
std::string visiblePath(const Rights& rights, const std::string& groupIds, const std::string& path)
{
    if (rights.isUnrestricted()) {
        return path.empty() ? "" : path + "/";
    }
    const std::vector<std::string> ids = partsOf(groupIds), names = partsOf(path);
    std::string visible;
    for (size_t i = std::min(ids.size(), names.size()); i > 0; --i) {
        int64_t id = 0;
        if (!readNumber(ids[i - 1], id) || !rights.mayManage(id)) {
            break;
        }
        visible.insert(0, names[i - 1] + "/");
    }
    return visible;
}

bool isStoredMember(const Json::Value& jMember)
{
    return jMember.isArray() && jMember.size() >= 3 && jMember[0].isString();
}

bool isStoredChange(const Json::Value& jStored)
{
    if (!jStored.isArray() || (jStored.size() != 4 && jStored.size() != 6)) {
        return false;
    }
    const bool hasPath = jStored.size() == 6;
    const Json::Value& jMembers = jStored[3];
    return jStored[0].isInt64() && jStored[1].isString() && jStored[2].isString() && jMembers.isArray() &&
           std::all_of(jMembers.begin(), jMembers.end(), isStoredMember) &&
           (!hasPath || (jStored[4].isString() && jStored[5].isString()));
}

// Returns the changes of a row; none for a row that was damaged by direct SQL, so that the others can be read.
Json::Value storedChanges(const HistoryRow& row)
{
    try {
        Json::Value jChanges = parseJson(row.changes.c_str());
        if (jChanges.isArray() && std::all_of(jChanges.begin(), jChanges.end(), isStoredChange)) {
            return jChanges;
        }
    } catch (const Refusal&) {  // not JSON
    }
    return Json::Value(Json::arrayValue);
}

Json::Value membersOf(const Json::Value& jStored)
{
    Json::Value jMembers(Json::arrayValue);
    for (const Json::Value& jMember : jStored) {
        Json::Value& jAdded = jMembers.append(Json::objectValue);
        jAdded["member"] = jMember[0];
        if (!jMember[1].isNull()) {
            jAdded["before"] = jMember[1];
        }
        if (!jMember[2].isNull()) {
            jAdded["after"] = jMember[2];
        }
        if (jMember.size() > 3) {
            jAdded["cut"] = true;
        }
    }
    return jMembers;
}

// Sets the row's groups (identifiers and names) to those in the stored change, if it has any.
void readPath(const Json::Value& jStored, HistoryRow& row)
{
    if (jStored.size() > 5) {
        row.groupIds = VLIBCString(jStored[4].asString());
        row.path = VLIBCString(jStored[5].asString());
    }
}

// jStored: one of the row's changes. The row has the groups above its record.
Json::Value changeOf(const Rights& rights, const HistoryRow& row, const Json::Value& jStored)
{
    const std::string record = row.record.c_str();
    Json::Value jChange;
    jChange["time"] = Json::Int64{row.time};
    if (row.uid < 0) {
        jChange["command"] = row.actor.c_str();
    } else {
        jChange["uid"] = Json::Int64{row.uid};
        jChange["account"] = row.actor.c_str();
    }
    jChange["kind"] = record.substr(0, record.find(':'));
    jChange["id"] = jStored[0];
    jChange["name"] = jStored[1];
    jChange["path"] = visiblePath(rights, row.groupIds.c_str(), row.path.c_str()) + pathPart(jStored[1].asString());
    jChange["action"] = jStored[2];
    jChange["members"] = membersOf(jStored[3]);
    return jChange;
}

struct NumberedRow {
    int64_t number = 0;
    HistoryRow row;
};

// Reads rows that the filter selects, from the newest with at most that number on.
std::vector<NumberedRow> readRows(soci::session& sql, const HistoryFilter& filter, const std::optional<Node>& node,
                                  int64_t from)
{
    const std::string key = node ? keyOf(node->kind.c_str(), node->id) : "";
    const std::string block = node ? keyOfBlock(node->kind.c_str(), node->id) : "";
    int64_t uid = -1;
    const bool isByUid = filter.by.starts_with("uid=") && readNumber(std::string_view(filter.by).substr(4), uid);
    NumberedRow found;
    Row<HistoryRow> columnValues;
    Statement statement(sql);
    statement.in(from).in(filter.since);
    std::string query =
        "SELECT number, " + columns<HistoryRow>("@") + " FROM history WHERE number <= :from AND time >= :since";
    if (node) {
        statement.in(key).in(block);
        query += " AND record IN (:key, :block)";
    }
    if (!filter.by.empty()) {
        query += isByUid ? " AND uid = :by" : " AND actor = :by";
        isByUid ? statement.in(uid) : statement.in(filter.by);
    }
    statement.out(found.number);
    columnValues.bindOut(statement);
    statement.prepare(query + " ORDER BY number DESC LIMIT " + std::to_string(kBatchSize));
    std::vector<NumberedRow> rows;
    for (bool isRow = statement.first(); isRow; isRow = statement.next()) {
        columnValues.copyTo(found.row);
        rows.push_back(found);
    }
    return rows;
}

// Leaves the names of accounts that no longer exist out, so that they show as their uids.
void removeGoneAccounts(soci::session& sql, Json::Value& jChanges)
{
    std::vector<int64_t> uids;
    for (const Json::Value& jChange : jChanges) {
        if (jChange.isMember("uid")) {
            uids.push_back(jChange["uid"].asInt64());
        }
    }
    const auto known = valuesIn(sql, Kind<AccountRow>::kTable, "uid", uids);
    for (Json::Value& jChange : jChanges) {
        if (jChange.isMember("uid") && !known.contains(jChange["uid"].asInt64())) {
            jChange.removeMember("account");
        }
    }
}

// Fills a page. Used for one page by one thread.
class PageReader {
public:
    PageReader(soci::session& sql, const Rights& rights, const HistoryFilter& filter, const std::optional<Node>& node)
        : m_sql(sql), m_rights(rights), m_filter(filter), m_node(node)
    {
    }

    Json::Value read(Place place)
    {
        for (bool isMore = true; isMore;) {
            std::vector<NumberedRow> rows = readRows(m_sql, m_filter, m_node, place.row);
            isMore = rows.size() == kBatchSize;
            for (NumberedRow& row : rows) {
                if (!addChanges(row, row.number == place.row ? place.done : 0)) {
                    return page();
                }
            }
            place = {isMore ? rows.back().number - 1 : 0, 0};
        }
        return page();
    }

private:
    // Adds the row's changes from that index on. Returns false, and sets the next place, when the page is full.
    bool addChanges(NumberedRow& numbered, int64_t from)
    {
        const Json::Value jChanges = storedChanges(numbered.row);
        for (Json::ArrayIndex i = 0; i < jChanges.size(); ++i) {
            readPath(jChanges[i], numbered.row);
            if (i < from) {
                continue;
            }
            if (m_node && jChanges[i][0].asInt64() != m_node->id) {
                continue;
            }
            if (m_jChanges.size() == kPageSize) {
                m_jNext = std::to_string(numbered.number) + "." + std::to_string(i);
                return false;
            }
            m_jChanges.append(changeOf(m_rights, numbered.row, jChanges[i]));
        }
        return true;
    }

    Json::Value page()
    {
        removeGoneAccounts(m_sql, m_jChanges);
        Json::Value jPage;
        jPage["changes"] = std::move(m_jChanges);
        jPage["next"] = std::move(m_jNext);
        return jPage;
    }

    soci::session& m_sql;
    const Rights& m_rights;
    const HistoryFilter& m_filter;
    const std::optional<Node>& m_node;
    Json::Value m_jChanges{Json::arrayValue};
    Json::Value m_jNext;
};

}  // namespace

std::optional<Json::Value> readHistory(std::optional<uint32_t> askingUid, const HistoryFilter& filter)
{
    const auto node = filter.node.empty() ? std::nullopt : std::optional(nodeOf(filter.node));
    const Place place = filter.before.empty() ? Place() : placeOf(filter.before);
    const auto read = [&](soci::session& sql) -> std::optional<Json::Value> {
        const Rights rights(sql, askingUid);
        if (!maySee(sql, rights, node)) {
            return std::nullopt;
        }
        return PageReader(sql, rights, filter, node).read(place);
    };
    return inTransaction(Access::read, read);
}

}  // namespace store
