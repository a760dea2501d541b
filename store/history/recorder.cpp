// Writes one row for a change by a request, and rows of many changes for a whole fleet. The path in the row of one
// change is made by a function of the database on PostgreSQL, where each statement is a round trip. On SQLite, the
// groups are read one by one. A recursive query would take longer on both, because it is prepared each time.
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

// Returns the SQL statement that inserts rows on PostgreSQL. tables: for its FROM clause, with a comma at the end; they
// give one row for each row to insert.
std::string insertFor(const std::string& tables)
{
    return "INSERT INTO history (time, uid, actor, record, changes, group_ids, path)"
           " SELECT :time, :uid, :actor, :record, :changes, above.ids, above.path FROM " +
           tables + "group_path(:group) AS above";
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
        statement.in(time).in(actor.uid).in(actor.name).in(record).in(changes).in(groupId);
    }

    const int64_t groupId;
    const int64_t time = std::time(nullptr);
    const Actor& actor;
    const std::string record;
    std::string changes = "[";
};

// Reads the name and the parent of one group after the other.
class GroupReader {
public:
    explicit GroupReader(soci::session& sql) : m_statement(sql)
    {
        m_statement.in(m_id).out(m_group.parentId).out(m_name);
        m_statement.prepare("SELECT parent_id, name FROM ou WHERE id = :id", false);
    }

    // Returns the group, which stays valid until the next call; null when there is none.
    const Group* find(int64_t id)
    {
        m_id = id;
        if (!m_statement.first()) {
            return nullptr;
        }
        m_group.name = VLIBCString(m_name);
        return &m_group;
    }

private:
    int64_t m_id = 0;
    std::string m_name;
    Group m_group;
    Statement m_statement;
};

void insertRow(soci::session& sql, const Values& values)
{
    GroupReader groups(sql);
    GroupPaths paths([&groups](int64_t id) { return groups.find(id); });
    const GroupPaths::Path& path = paths.of(values.groupId);
    Inserter<HistoryRow> inserter(sql);
    inserter.insert({values.time, values.actor.uid, VLIBCString(values.actor.name), VLIBCString(values.record),
                     VLIBCString(path.ids), VLIBCString(path.names), VLIBCString(values.changes)});
    inserter.flush();
}

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
    static const std::string kInsert = insertFor("");
    if (!isToRecord(change)) {
        return;
    }
    const Values values(actor, change);
    if (!isPostgres()) {
        return insertRow(sql, values);
    }
    Statement statement(sql);
    values.bindIn(statement);
    statement.prepare(kInsert).change();
}

int64_t changeAndRecord(soci::session& sql, Statement& statement, const std::string& query, const Actor& actor,
                        const Change& change)
{
    static const std::string kInsert = " RETURNING 1) " + insertFor("changed, ");
    if (isPostgres() && isToRecord(change)) {
        const Values values(actor, change);
        values.bindIn(statement);
        return statement.prepare("WITH changed AS (" + query + kInsert).change();
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
    const std::string& path = paths.of(change.groupId).text;
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
