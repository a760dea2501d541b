// SQL statements over a session, which is one connection: used by the thread that leased it, in its open transaction.
// What the database reports is thrown as soci::soci_error, the end of the connection as Refusal EIO.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include <soci/soci.h>

namespace store {

// One SQL statement. Bind everything, then prepare, then execute as often as needed: bound variables are read and
// written by reference and must outlive the statement. Parameters are named ":x", each once, bound in their order.
class Statement {
public:
    explicit Statement(soci::session& sql) : m_sql(sql), m_statement(sql) {}
    Statement(const Statement&) = delete;

    template <typename T>
    Statement& in(const T& value)
    {
        m_statement.exchange(soci::use(value));
        return *this;
    }

    Statement& in(const std::vector<int64_t>& values);

    template <typename T>
    Statement& out(T& value)
    {
        m_statement.exchange(soci::into(value));
        return *this;
    }

    // once: the statement is executed a single time.
    Statement& prepare(const std::string& query, bool once = true);

    bool first();      // executes; whether a row came, whose columns the out variables then hold
    bool next();       // whether another row came
    int64_t change();  // executes; number of rows changed

private:
    template <typename Work>
    auto run(Work&& work);

    soci::session& m_sql;
    soci::statement m_statement;
};

// Executes a statement that neither takes nor gives values.
void execute(soci::session& sql, const std::string& query);

// The one number that the query gives, 0 without a row; the arguments are its parameters in their order.
template <typename... Parameters>
int64_t number(soci::session& sql, const std::string& query, const Parameters&... parameters)
{
    int64_t result = 0;
    Statement statement(sql);
    (statement.in(parameters), ...);
    return statement.out(result).prepare(query).first() ? result : 0;
}

// The numbers that the query gives; the arguments are its parameters in their order.
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

// Those of the values that the column of the table holds, with one query for a thousand of them.
std::unordered_set<int64_t> valuesIn(soci::session& sql, const std::string& table, const std::string& column,
                                     const std::vector<int64_t>& values);

// Conditions "column IN (...)" that together name every value, each for a thousand at most; SQL has to be short.
std::vector<std::string> conditionsFor(const std::string& column, const std::vector<int64_t>& values);

// Executes a changing statement with these parameters; the number of rows that it changed.
template <typename... Parameters>
int64_t change(soci::session& sql, const std::string& query, const Parameters&... parameters)
{
    Statement statement(sql);
    (statement.in(parameters), ...);
    return statement.prepare(query).change();
}

}  // namespace store
