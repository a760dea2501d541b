// The open database: pooled connections, transactions, statements, and errno for whatever goes wrong.
//
// A function of the store is written as guarded(...), reading(...) or writing(...) around its work; the work throws
// Refusal, or BadInput for a value that cannot be used, and the wrapper turns that into errno and -1.
#pragma once

#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <soci/soci.h>

namespace standin {

// The call is refused with this errno value.
struct Refusal : std::runtime_error {
    explicit Refusal(int errnoValue);
    int code;
};

// A JSON value or a text that cannot be used. place: member path of the value, "delegate[1].ugid"; why: for people.
struct BadInput : std::runtime_error {
    BadInput(const std::string& place, const std::string& why) : std::runtime_error(place + ": " + why) {}
};

// Throws Refusal with that errno value unless the condition holds.
void require(bool condition, int errnoValue);

// The errno value for the exception being handled; to be called in a catch block only.
int errnoOfException();

enum class Access { read, write };

// One leased connection in one transaction, rolled back on destruction unless committed. A reading transaction sees one
// moment of the store; writing ones run one after the other. Used by one thread, one at a time per thread.
class Transaction {
public:
    // Throws Refusal EBUSY when no connection or lock comes free within five seconds, EIO when no store is open.
    explicit Transaction(Access access);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    soci::session& sql()
    {
        return m_sql;
    }
    void commit();

private:
    size_t m_slot;
    soci::session& m_sql;
    bool m_open = true;
};

// One SQL statement. Bind everything, then prepare, then execute as often as needed: bound variables are read and
// written by reference and must outlive the statement. Parameters are named ":x", each once, bound in their order.
class Statement {
public:
    explicit Statement(soci::session& sql) : m_statement(sql) {}

    template <class T>
    Statement& in(const T& value)
    {
        m_statement.exchange(soci::use(value));
        return *this;
    }

    Statement& in(const std::vector<int64_t>& values)
    {
        for (const int64_t& value : values) {
            in(value);
        }
        return *this;
    }

    template <class T>
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
    soci::statement m_statement;
};

// Executes a statement that neither takes nor gives values.
void execute(soci::session& sql, const std::string& query);

// The one number that the query gives; the arguments are its parameters in their order.
template <class... Parameters>
int64_t number(soci::session& sql, const std::string& query, const Parameters&... parameters)
{
    int64_t result = 0;
    Statement statement(sql);
    (statement.in(parameters), ...);
    return statement.out(result).prepare(query).first() ? result : 0;
}

// Executes a changing statement with these parameters; the number of rows that it changed.
template <class... Parameters>
int64_t change(soci::session& sql, const std::string& query, const Parameters&... parameters)
{
    Statement statement(sql);
    (statement.in(parameters), ...);
    return statement.prepare(query).change();
}

// Seconds since 1970.
int64_t now();

// Runs the work: 0 and errno as it was, or -1 with errno.
template <class Work>
int guarded(Work&& work) noexcept
{
    const int saved = errno;
    try {
        work();
        errno = saved;
        return 0;
    } catch (...) {
        errno = errnoOfException();
        return -1;
    }
}

// The same with a transaction around work(soci::session&).
template <class Work>
int transacted(Access access, Work&& work) noexcept
{
    return guarded([&] {
        Transaction transaction(access);
        work(transaction.sql());
        transaction.commit();
    });
}

template <class Work>
int reading(Work&& work) noexcept
{
    return transacted(Access::read, work);
}

void dropSnapshot();  // see snapshot.h

template <class Work>
int writing(Work&& work) noexcept
{
    dropSnapshot();
    return transacted(Access::write, work);
}

// Creates the schema in an empty database, checks its version in another. postgres: the database's dialect.
void prepareSchema(bool postgres);

}  // namespace standin
