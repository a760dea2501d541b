// Writes the rows of the table history, in the transaction of the changes that they describe.
//
// A row holds the change of one record, or the changes of records with neighbouring identifiers that one commit made:
// number, in the order of the commits; time, in seconds since 1970; uid of the acting account, -1 without one; actor,
// the name that this account had, or the command; record, as keyOf() or keyOfBlock() returns it; group_ids and path of
// the groups above the record, of which the root group is left out; changes, an array of texts as history/change_text.h
// describes them. In a row of several records, group_ids and path are empty. There, a change has them as two more
// elements, unless they are the same as in the change before it.
//
// Functions that take a session run in the caller's transaction and throw DatabaseError.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

#include "store/history/change_text.h"
#include "store/records/rows.h"
#include "store/rules/rights.h"

namespace store {

struct HistoryRow {
    int64_t time = 0;
    int64_t uid = -1;
    VLIBCString actor;
    VLIBCString record;
    VLIBCString groupIds;
    VLIBCString path;
    VLIBCString changes;
};

template <>
struct Kind<HistoryRow> {
    static constexpr const char* kTable = "history";
    static constexpr std::array<Field<HistoryRow>, 7> kFields = {{
        {"time", &HistoryRow::time},
        {"uid", &HistoryRow::uid},
        {"actor", &HistoryRow::actor},
        {"record", &HistoryRow::record},
        {"group_ids", &HistoryRow::groupIds},
        {"path", &HistoryRow::path},
        {"changes", &HistoryRow::changes},
    }};
};

// Who makes a change: an account, or a command when the uid is -1.
struct Actor {
    int64_t uid = -1;
    std::string name;
};

// Returns the acting account, whose rights these are, or the command of this process.
Actor actorOf(const Rights& rights);

// Returns the command of this process, which setCommand() of store.h sets.
Actor commandActor();

// Sets whether this process records changes; it does at first. Any thread may call it.
void setRecording(bool isRecording);

// Returns whether this process records changes.
bool isRecording();

// Returns the key of a row with one record, "group:12".
std::string keyOf(const char* szKind, int64_t id);

// Returns the key of a row with several records of the identifier's block, "group:0-63".
std::string keyOfBlock(const char* szKind, int64_t id);

// Records one change.
void record(soci::session& sql, const Actor& actor, const Change& change);

// Executes a changing statement, whose parameters are bound already, and records the change if it changes a row.
// PostgreSQL does both with one statement, to save a round trip. query: without RETURNING. Returns the number of rows
// that it changes.
int64_t changeAndRecord(soci::session& sql, Statement& statement, const std::string& query, const Actor& actor,
                        const Change& change);

// Returns paths of groups. Used by one thread.
class GroupPaths {
public:
    // find: returns the group of that identifier, null when there is none. The result stays valid until the next call.
    explicit GroupPaths(std::function<const Group*(int64_t)> find) : m_find(std::move(find)) {}

    // The way from the topmost group to a group: its identifiers; its names; both as JSON strings, separated by a
    // comma. All are empty for the root group.
    struct Path {
        std::string ids, names, text;
    };

    const Path& of(int64_t id)
    {
        return pathOf(id, 0);
    }

private:
    const Path& pathOf(int64_t id, int steps);

    const std::function<const Group*(int64_t)> m_find;
    std::unordered_map<int64_t, Path> m_known;
};

// Records the changes of many records, up to kBlock of them in a row. Used by the thread of the transaction.
class BulkRecorder {
public:
    BulkRecorder(soci::session& sql, const Actor& actor);

    // Records the change now or later, in flush() at the latest. Changes of one kind come in a row, with ascending
    // identifiers.
    void add(const Change& change, GroupPaths& paths);

    // Records the changes that are still waiting. Call it after the last change; the destructor drops them.
    void flush();

private:
    void writeRow();

    Inserter<HistoryRow> m_inserter;
    HistoryRow m_row;
    const char* m_szKind = nullptr;  // of the waiting changes
    int64_t m_lastId = 0;            // of the last of them
    std::string m_changes;
    std::string m_path;  // of the last of them, as the text of GroupPaths
    size_t m_count = 0;
};

// Writes the record over the stored one, which has its identifier and revision, sets its new time and revision, and
// records the change. Fields that are the same are not written, because a text can be long. Returns the names of those
// that differ, separated by commas, without those that the store manages. Throws Refusal EAGAIN when the store holds no
// such record any more.
template <typename R>
std::string replace(soci::session& sql, const Rights& rights, R& record, const R& stored);

}  // namespace store
