// Reads, inserts and replaces records as rows, with the SQL made from their kind's table of fields.
//
// A function that takes a session runs in the caller's transaction and throws Refusal, or DatabaseError for an error
// of the database; readRecord() opens a transaction of its own.
#pragma once

#include <array>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "store/db/transaction.h"
#include "store/records/records.h"
#include "store/sql/statement.h"

namespace store {

// The variables that the columns of one row are bound to, a cell for each field.
template <typename R>
class Row {
public:
    void bindIn(Statement& statement) const
    {
        for (size_t i = 0; i < kFields.size(); ++i) {
            bindIn(statement, i);
        }
    }

    // Binds that field alone.
    void bindIn(Statement& statement, size_t field) const
    {
        if (kFields[field].isText()) {
            statement.in(m_cells[field].text);
        } else {
            statement.in(m_cells[field].number);
        }
    }

    void bindOut(Statement& statement)
    {
        for (size_t i = 0; i < kFields.size(); ++i) {
            if (kFields[i].isText()) {
                statement.out(m_cells[i].text);
            } else {
                statement.out(m_cells[i].number);
            }
        }
    }

    void copyFrom(const R& record)
    {
        for (size_t i = 0; i < kFields.size(); ++i) {
            std::visit([&](auto member) { m_cells[i].copyFrom(record.*member); }, kFields[i].member);
        }
    }

    void copyTo(R& record) const
    {
        for (size_t i = 0; i < kFields.size(); ++i) {
            std::visit([&](auto member) { m_cells[i].copyTo(record.*member); }, kFields[i].member);
        }
    }

private:
    struct Cell {
        int64_t number = 0;
        std::string text;

        void copyFrom(int64_t value)
        {
            number = value;
        }

        void copyFrom(const VLIBCString& value)
        {
            text = value.c_str();
        }

        void copyTo(int64_t& target) const
        {
            target = number;
        }

        void copyTo(int32_t& target) const
        {
            target = static_cast<int32_t>(number);
        }

        void copyTo(VLIBCString& target) const
        {
            target = VLIBCString(text);
        }
    };

    static constexpr const auto& kFields = Kind<R>::kFields;
    std::array<Cell, Kind<R>::kFields.size()> m_cells;
};

// Returns the kind's columns, separated by commas, each as the pattern with the column's name in place of '@'.
template <typename R>
std::string columns(const std::string& pattern)
{
    std::string list;
    for (const Field<R>& field : Kind<R>::kFields) {
        list += list.empty() ? "" : ", ";
        for (const char c : pattern) {
            list += c == '@' ? std::string(field.name) : std::string(1, c);
        }
    }
    return list;
}

// Reads the records that a query selects, one after the other.
template <typename R>
class Reader {
public:
    // with: text before SELECT; rest: text after the table's name; parameters: those of both texts, which must outlive
    // the reader.
    template <typename... Parameters>
    Reader(soci::session& sql, const std::string& with, const std::string& rest, const Parameters&... parameters)
        : m_statement(sql)
    {
        (m_statement.in(parameters), ...);
        m_row.bindOut(m_statement);
        m_statement.prepare(with + "SELECT " + columns<R>("\"@\"") + " FROM " + Kind<R>::kTable + " " + rest);
    }

    // Fills the record, all fields but pNext, with the next row. Returns false after the last row.
    bool next(R& record)
    {
        const bool found = m_started ? m_statement.next() : m_statement.first();
        m_started = true;
        if (found) {
            m_row.copyTo(record);
        }
        return found;
    }

private:
    Row<R> m_row;
    Statement m_statement;
    bool m_started = false;
};

// Returns the refusal for a record that does not exist: ENOENT. member: the member that names it, empty when the call
// does.
template <typename R>
Refusal noSuch(int64_t id, const char* szMember = "")
{
    const Reason reason = std::is_same_v<R, Policy> ? Reason::unknownPolicy : Reason::unknownNode;
    return Refusal(ENOENT, reason, szMember, std::string("no ") + Kind<R>::kName + " " + std::to_string(id));
}

// Loads the record of that identifier, all fields but pNext. Throws Refusal ENOENT.
template <typename R>
void load(soci::session& sql, int64_t id, R& record)
{
    if (!Reader<R>(sql, "", "WHERE id = :id", id).next(record)) {
        throw noSuch<R>(id);
    }
}

// Builds a chain by appending records.
template <typename R>
class ChainBuilder {
public:
    void append(std::unique_ptr<R> pRecord)
    {
        R* pAdded = pRecord.release();
        if (m_pEnd == nullptr) {
            m_pHead.reset(pAdded);
        } else {
            m_pEnd->pNext = pAdded;
        }
        m_pEnd = pAdded;
    }

    // Returns the chain and starts an empty one.
    Chain<R> release()
    {
        m_pEnd = nullptr;
        return std::move(m_pHead);
    }

private:
    Chain<R> m_pHead;
    R* m_pEnd = nullptr;
};

// Returns the remaining records of the reader.
template <typename R>
Chain<R> readChain(Reader<R>&& reader)
{
    ChainBuilder<R> chain;
    auto pRecord = std::make_unique<R>();
    while (reader.next(*pRecord)) {
        chain.append(std::exchange(pRecord, std::make_unique<R>()));
    }
    return chain.release();
}

// Returns copies of the records, in the order of their identifiers.
template <typename R>
Chain<R> chainOf(const std::map<int64_t, R>& records)
{
    ChainBuilder<R> chain;
    for (const auto& [id, record] : records) {
        chain.append(std::make_unique<R>(record));
    }
    return chain.release();
}

// Returns the text at the end of an INSERT that makes a new record overwrite the stored one with its identifier.
template <typename R>
std::string orOverwrite()
{
    return std::string(" ON CONFLICT (\"") + Kind<R>::kFields[0].name + "\") DO UPDATE SET " +
           columns<R>("\"@\" = excluded.\"@\"");
}

// Inserts records, up to a hundred with one statement, because each statement is a round trip to the database.
template <typename R>
class Inserter {
public:
    // rest: text after the values.
    explicit Inserter(soci::session& sql, std::string rest = "") : m_sql(sql), m_rest(std::move(rest)) {}

    // Inserts the record now or later, in flush() at the latest.
    void insert(const R& record)
    {
        if (m_count == m_rows.size()) {
            m_rows.emplace_back();
        }
        m_rows[m_count].copyFrom(record);
        if (++m_count == kMost) {
            flush();
        }
    }

    // Inserts the records that are still waiting. Call it after the last record; the destructor drops them.
    void flush()
    {
        if (m_count == 0) {
            return;
        }
        if (m_count != m_prepared) {
            prepare();
        }
        m_pStatement->change();
        m_count = 0;
    }

private:
    static constexpr size_t kMost = 100;  // rows; with more, a statement takes longer than the round trips it saves

    void prepare()
    {
        m_pStatement = std::make_unique<Statement>(m_sql);
        std::string values;
        for (size_t i = 0; i < m_count; ++i) {
            m_rows[i].bindIn(*m_pStatement);
            values += (i == 0 ? "(" : ", (") + columns<R>(":@" + std::to_string(i)) + ")";
        }
        m_pStatement->prepare(
            std::string("INSERT INTO ") + Kind<R>::kTable + " (" + columns<R>("\"@\"") + ") VALUES " + values + m_rest,
            m_count < kMost);
        m_prepared = m_count;
    }

    soci::session& m_sql;
    const std::string m_rest;
    std::deque<Row<R>> m_rows;  // at most kMost; a deque, because the statement is bound to the rows' addresses
    size_t m_count = 0;         // of rows that wait to be inserted
    std::unique_ptr<Statement> m_pStatement;
    size_t m_prepared = 0;  // number of rows that the statement inserts
};

// Loads the record of that identifier, all fields but pNext, into *pRecord, in a transaction of its own. Returns 0, or
// -1 with errno. EINVAL: pRecord is null. ENOENT: there is no such record.
template <typename R>
int readRecord(int64_t id, R* pRecord) noexcept
{
    return toErrno([&] {
        inTransaction(Access::read, [&](soci::session& sql) {
            requireArguments(pRecord);
            R loaded(*pRecord);
            load(sql, id, loaded);
            *pRecord = loaded;
        });
    });
}

}  // namespace store
