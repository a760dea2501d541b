// Writes one row for a change by a request, with the path made by SQL, and rows of many changes for a whole fleet.
#include "store/history/recorder.h"

#include <atomic>
#include <ctime>
#include <limits>
#include <utility>

#include "store/base/thread_state.h"

namespace store {
namespace {

constexpr int64_t kBlock = 64;  // identifiers of a row with several records

// Returns the number of the identifier's block. The shift rounds down, also for a negative identifier.
int64_t blockOf(int64_t id)
{
    static_assert(kBlock == 1 << 6);
    return id >> 6;
}

std::string gCommand;
std::atomic<bool> gIsRecording{true};

// Bounds the walk along a damaged tree, which may have cycles.
constexpr int kMaxPathSteps = 2 * kMaxGroupDepth;

// Defines "above": the group of the parameter and those above it but the root, with the paths from these down to it.
const std::string kAbove =
    "above (parent_id, ids, path, steps) AS (SELECT parent_id, CAST(id AS TEXT), @, 1 FROM ou"
    " WHERE id = :group AND id <> 0 UNION ALL"
    " SELECT o.parent_id, CAST(o.id AS TEXT) || '/' || a.ids, @ || '/' || a.path, a.steps + 1"
    " FROM ou o JOIN above a ON o.id = a.parent_id WHERE o.id <> 0 AND a.steps < " +
    std::to_string(kMaxPathSteps) + ") ";

// Returns the text after WITH RECURSIVE and other tables that inserts one row for each row of that table.
std::string insertFor(const std::string& table)
{
    std::string above = kAbove;
    for (size_t at = 0; (at = above.find('@')) != std::string::npos;) {
        above.replace(at, 1, "REPLACE(REPLACE(name, '\\', '\\\\'), '/', '\\/')");
    }
    return above +
           "INSERT INTO history (time, uid, actor, record, group_ids, path, changes)"
           " SELECT :time, :uid, :actor, :record, COALESCE(top.ids, ''), COALESCE(top.path, ''), :changes FROM " +
           table + " LEFT JOIN (SELECT ids, path FROM above ORDER BY steps DESC LIMIT 1) AS top ON 1 = 1";
}

// Returns whether there is something to record: a call may leave every member as it is.
bool isToRecord(const Change& change)
{
    return gIsRecording && (change.isWhole || !change.members.empty());
}

// The values of a row, which must outlive the statement.
struct Values {
    Values(const Actor& author, const Change& change)
        : groupId(change.groupId), actor(author), record(keyOf(change.szKind, change.id))
    {
        appendText(change, changes);
        changes += ']';
    }

    // Binds the parameters of insertFor().
    void bindIn(Statement& statement) const
    {
        statement.in(groupId).in(time).in(actor.uid).in(actor.name).in(record).in(changes);
    }

    const int64_t groupId;
    const int64_t time = std::time(nullptr);
    const Actor& actor;
    const std::string record;
    std::string changes = "[";
};

}  // namespace

void setCommand(const std::string& name)
{
    gCommand = name;
}

void setRecording(bool isRecording)
{
    gIsRecording = isRecording;
}

Actor actorOf(const Rights& rights)
{
    const std::optional<uint32_t>& actingUid = threadState().actingUid;
    return actingUid ? Actor{*actingUid, rights.accountName()} : commandActor();
}

Actor commandActor()
{
    return {-1, gCommand};
}

std::string keyOf(const char* szKind, int64_t id)
{
    return std::string(szKind) + ":" + std::to_string(id);
}

std::string keyOfBlock(const char* szKind, int64_t id)
{
    const int64_t first = blockOf(id) * kBlock;
    return keyOf(szKind, first) + "-" + std::to_string(first + kBlock - 1);
}

bool isRecording()
{
    return gIsRecording;
}

void record(soci::session& sql, const Actor& actor, const Change& change)
{
    static const std::string kInsert = "WITH RECURSIVE " + insertFor("(SELECT 1) AS one");
    if (!isToRecord(change)) {
        return;
    }
    const Values values(actor, change);
    Statement statement(sql);
    values.bindIn(statement);
    statement.prepare(kInsert).change();
}

int64_t changeAndRecord(soci::session& sql, Statement& statement, const std::string& query, const Actor& actor,
                        const Change& change)
{
    static const std::string kInsert = " RETURNING 1), " + insertFor("changed");
    if (isPostgres() && isToRecord(change)) {
        const Values values(actor, change);
        values.bindIn(statement);
        return statement.prepare("WITH RECURSIVE changed AS (" + query + kInsert).change();
    }
    const int64_t count = statement.prepare(query).change();
    if (count > 0) {
        record(sql, actor, change);
    }
    return count;
}

const GroupPaths::Path& GroupPaths::pathOf(int64_t id, int steps)
{
    static const Path kNone{"", "", "\"\",\"\""};
    const auto known = m_known.find(id);
    if (known != m_known.end()) {
        return known->second;
    }
    const Group* pGroup = id == 0 || steps == kMaxPathSteps ? nullptr : m_find(id);
    if (pGroup == nullptr) {
        return kNone;
    }
    Path path{std::to_string(id), pathPart(pGroup->name.c_str()), ""};
    const Path& above = pathOf(pGroup->parentId, steps + 1);
    if (!above.ids.empty()) {
        path.ids.insert(0, above.ids + "/");
        path.names.insert(0, above.names + "/");
    }
    path.text = quotedText(path.ids) + "," + quotedText(path.names);
    return m_known.emplace(id, std::move(path)).first->second;
}

BulkRecorder::BulkRecorder(soci::session& sql, const Actor& actor) : m_inserter(sql)
{
    m_row.time = std::time(nullptr);
    m_row.uid = actor.uid;
    m_row.actor = VLIBCString(actor.name);
}

void BulkRecorder::add(const Change& change, GroupPaths& paths)
{
    if (!gIsRecording) {
        return;
    }
    if (m_count > 0 && (change.szKind != m_szKind || blockOf(change.id) != blockOf(m_lastId))) {
        writeRow();
    }
    m_szKind = change.szKind;
    m_lastId = change.id;
    const std::string& path = paths.textOf(change.groupId);
    m_changes += m_count == 0 ? '[' : ',';
    appendText(change, m_changes);
    if (m_count == 0 || path != m_path) {
        m_changes.back() = ',';
        m_changes += path;
        m_changes += ']';
        m_path = path;
    }
    ++m_count;
}

void BulkRecorder::writeRow()
{
    if (m_count == 0) {
        return;
    }
    m_changes += ']';
    m_row.record = VLIBCString(m_count == 1 ? keyOf(m_szKind, m_lastId) : keyOfBlock(m_szKind, m_lastId));
    m_row.changes = VLIBCString(m_changes);
    m_inserter.insert(m_row);
    m_changes.clear();
    m_count = 0;
}

void BulkRecorder::flush()
{
    writeRow();
    m_inserter.flush();
}

template <typename R>
std::string replace(soci::session& sql, const Rights& rights, R& record, const R& stored)
{
    const int64_t before = record.revision;
    record.mtime = std::time(nullptr);
    record.revision = nextRevision(before);
    Row<R> row;
    row.copyFrom(record);
    Statement statement(sql);
    std::string assignments, names;
    for (size_t i = 0; i < Kind<R>::kFields.size(); ++i) {
        const Field<R>& field = Kind<R>::kFields[i];
        if (isSame(field, record, stored)) {
            continue;
        }
        row.bindIn(statement, i);
        assignments += std::string(assignments.empty() ? "\"" : ", \"") + field.name + "\" = :" + field.name;
        if (field.kind != FieldKind::storeManaged) {
            names += (names.empty() ? "" : ",") + std::string(field.name);
        }
    }
    statement.in(record.id).in(before);
    const std::string update =
        std::string("UPDATE ") + Kind<R>::kTable + " SET " + assignments + " WHERE id = :key AND revision = :before";
    if (changeAndRecord(sql, statement, update, actorOf(rights), changeBetween(&stored, &record)) != 1) {
        throw changedSinceRead();
    }
    return names;
}

template std::string replace(soci::session&, const Rights&, Group&, const Group&);
template std::string replace(soci::session&, const Rights&, Server&, const Server&);

}  // namespace store
