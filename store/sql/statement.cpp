// Executes SQL statements and counts those of each thread, so that tests can limit the number that a call may use.
#include "store/sql/statement.h"

#include "store/base/errors.h"
#include "store/sql/database_error.h"
#include "store/sql/last_statement.h"
#include "store/sql/postgres_connection.h"
#include "store/store.h"

namespace store {
namespace {

thread_local uint64_t tStatements = 0;

// Always gives a lost connection the same text, because the client library's text depends on how and when it ended.
[[noreturn]] void throwDatabaseError(soci::session& sql, const soci::soci_error& error)
{
    requireAnswer(!isLost(sql));
    throw DatabaseError(error);
}

// Returns the index after the run of consecutive numbers that begins at an index.
size_t endOfRange(const std::vector<int64_t>& values, size_t begin)
{
    size_t end = begin + 1;
    while (end < values.size() && values[end - 1] < values[end] && values[end - 1] == values[end] - 1) {
        ++end;
    }
    return end;
}

}  // namespace

Statement::Statement(soci::session& sql)
try : m_sql(sql), m_statement(sql) {
} catch (const soci::soci_error& error) {
    throwDatabaseError(sql, error);
}

template <typename Work>
auto Statement::run(Work&& work)
{
    try {
        return work();
    } catch (const soci::soci_error& error) {
        throwDatabaseError(m_sql, error);
    }
}

Statement& Statement::in(const std::vector<int64_t>& values)
{
    for (const int64_t& value : values) {
        in(value);
    }
    return *this;
}

Statement& Statement::prepare(const std::string& query, bool once)
{
    const StatementMark mark;
    const auto type = once ? soci::details::st_one_time_query : soci::details::st_repeatable_query;
    run([&] {
        m_statement.alloc();
        m_statement.prepare(query, type);
        m_statement.define_and_bind();
    });
    return *this;
}

bool Statement::first()
{
    ++tStatements;
    const StatementMark mark;
    return withoutNulls(run([this] { return m_statement.execute(true); }));
}

bool Statement::next()
{
    return withoutNulls(run([this] { return m_statement.fetch(); }));
}

bool Statement::withoutNulls(bool isRow)
{
    for (size_t i = 0; isRow && i < m_states.size(); ++i) {
        if (m_states[i] == soci::i_null) {
            m_clearers[i]();
        }
    }
    return isRow;
}

int64_t Statement::change()
{
    first();
    return run([this] { return m_statement.get_affected_rows(); });
}

std::vector<std::string> conditionsFor(const std::string& column, const std::vector<int64_t>& values)
{
    constexpr size_t kMaxValues = 1000;
    constexpr size_t kShortestRange = 100;
    std::vector<std::string> conditions;
    std::string list;
    size_t listed = 0;
    const auto endList = [&] {
        if (listed > 0) {
            conditions.push_back(column + " IN (" + list + ")");
        }
        list.clear();
        listed = 0;
    };
    for (size_t i = 0, end = 0; i < values.size(); i = end) {
        end = endOfRange(values, i);
        if (end - i >= kShortestRange) {
            conditions.push_back(column + " BETWEEN " + std::to_string(values[i]) + " AND " +
                                 std::to_string(values[end - 1]));
            continue;
        }
        for (; i < end; ++i) {
            list += (listed == 0 ? "" : ",") + std::to_string(values[i]);
            if (++listed == kMaxValues) {
                endList();
            }
        }
    }
    endList();
    return conditions;
}

std::unordered_set<int64_t> valuesIn(soci::session& sql, const std::string& table, const std::string& column,
                                     const std::vector<int64_t>& values)
{
    std::unordered_set<int64_t> found;
    for (const std::string& condition : conditionsFor(column, values)) {
        found.merge(numbers(sql, "SELECT " + column + " FROM " + table + " WHERE " + condition));
    }
    return found;
}

void execute(soci::session& sql, const std::string& query)
{
    Statement(sql).prepare(query).first();
}

uint64_t statementCount()
{
    return tStatements;
}

}  // namespace store
