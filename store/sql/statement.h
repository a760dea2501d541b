// Executes SQL statements on a session, which is one connection. Only the thread that leased the connection may use it.
// A statement belongs to the open transaction of the session, if there is one. Everything here throws DatabaseError
// when the database reports an error, and Refusal EIO when the connection has ended.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

#include <soci/soci.h>

namespace store {

// One SQL statement. Bind all variables, then prepare, then execute as often as needed. Bound variables are read and
// written by reference and must outlive the statement. Parameters are named ":x", each name once, and bound in their
// order.
class Statement {
public:
    explicit Statement(soci::session& sql);
    Statement(const Statement&) = delete;

    // Binds the next parameter.
    template <typename T>
    Statement& in(const T& value)
    {
        m_statement.exchange(soci::use(value));
        return *this;
    }

    // Binds each of the values as a parameter.
    Statement& in(const std::vector<int64_t>& values);

    // Binds the variable that receives the next column. NULL, which only direct SQL can store, becomes 0 or an empty
    // text, so that it spoils its own record alone.
    template <typename T>
    Statement& out(T& value)
    {
        soci::indicator& state = m_states.emplace_back(soci::i_ok);
        m_clearers.emplace_back([&value] { value = T(); });
        m_statement.exchange(soci::into(value, state));
        return *this;
    }

    // once: whether the statement is executed a single time.
    Statement& prepare(const std::string& query, bool once = true);

    // Executes the statement. Returns whether there is a row; its columns are in the out variables then.
    bool first();

    // Reads the next row. Returns whether there is one.
    bool next();

    // Executes the statement. Returns the number of rows that it changed.
    int64_t change();

private:
    template <typename Work>
    auto run(Work&& work);
    bool withoutNulls(bool isRow);

    soci::session& m_sql;
    std::deque<soci::indicator> m_states;  // of the columns; a deque, because the statement has their addresses
    std::vector<std::function<void()>> m_clearers;  // of the columns' variables
    soci::statement m_statement;
};

// Executes a statement without parameters and without rows.
void execute(soci::session& sql, const std::string& query);

// Returns the one number that the query gives, 0 without a row. The arguments are its parameters in their order.
template <typename... Parameters>
int64_t number(soci::session& sql, const std::string& query, const Parameters&... parameters)
{
    int64_t result = 0;
    Statement statement(sql);
    (statement.in(parameters), ...);
    return statement.out(result).prepare(query).first() ? result : 0;
}

// Returns the numbers that the query gives. The arguments are its parameters in their order.
template <typename... Parameters>
std::unordered_set<int64_t> numbers(soci::session& sql, const std::string& query, const Parameters&... parameters)
{
    std::unordered_set<int64_t> found;
    int64_t value = 0;
    Statement statement(sql);
    (statement.in(parameters), ...);
    statement.out(value).prepare(query);
    for (bool isRow = statement.first(); isRow; isRow = statement.next()) {
        found.insert(value);
    }
    return found;
}

// Returns those of the values that the column of the table holds, with one query for each thousand values.
std::unordered_set<int64_t> valuesIn(soci::session& sql, const std::string& table, const std::string& column,
                                     const std::vector<int64_t>& values);

// Returns conditions on the column that together cover all values: "column BETWEEN ..." for each long run of
// consecutive values, and "column IN (...)" with at most a thousand of the others, because databases limit the length
// of a statement.
std::vector<std::string> conditionsFor(const std::string& column, const std::vector<int64_t>& values);

// Executes a changing statement with these parameters. Returns the number of rows that it changed.
template <typename... Parameters>
int64_t change(soci::session& sql, const std::string& query, const Parameters&... parameters)
{
    Statement statement(sql);
    (statement.in(parameters), ...);
    return statement.prepare(query).change();
}

}  // namespace store
