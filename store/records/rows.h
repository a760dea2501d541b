// Records as rows: reading, inserting and replacing them, with the SQL made from the kind's table of fields.
//
// What takes a session runs in the caller's transaction and throws Refusal or DatabaseError; readRecord at the end is a
// whole function of the store, with a transaction of its own.
#pragma once

#include <array>
#include <ctime>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "store/db/statement.h"
#include "store/db/transaction.h"
#include "store/records/records.h"

namespace store {

// The bound variables of one row, a cell per field.
template <typename R>
class Row {
public:
    void bindIn(Statement& statement) const
    {
        for (size_t i = 0; i < kFields.size(); ++i) {
            bindIn(statement, i);
        }
    }

    // That field alone.
    void bindIn(Statement& statement, size_t field) const
    {
        kFields[field].isText() ? statement.in(m_cells[field].text) : statement.in(m_cells[field].number);
    }

    void bindOut(Statement& statement)
    {
        for (size_t i = 0; i < kFields.size(); ++i) {
            kFields[i].isText() ? statement.out(m_cells[i].text) : statement.out(m_cells[i].number);
        }
    }

    void take(const R& record)
    {
        for (size_t i = 0; i < kFields.size(); ++i) {
            std::visit([&](auto member) { m_cells[i].take(record.*member); }, kFields[i].member);
        }
    }

    void give(R& record) const
    {
        for (size_t i = 0; i < kFields.size(); ++i) {
            std::visit([&](auto member) { m_cells[i].give(record.*member); }, kFields[i].member);
        }
    }

private:
    struct Cell {
        int64_t number = 0;
        std::string text;

        void take(int64_t value)
        {
            number = value;
        }

        void take(const VLIBCString& value)
        {
            text = value.c_str();
        }

        void give(int64_t& target) const
        {
            target = number;
        }

        void give(int32_t& target) const
        {
            target = static_cast<int32_t>(number);
        }

        void give(VLIBCString& target) const
        {
            target = VLIBCString(text);
        }
    };

    static constexpr const auto& kFields = Kind<R>::kFields;
    std::array<Cell, Kind<R>::kFields.size()> m_cells;
};

// The kind's columns, each written as the pattern says with its name for '@', separated by commas.
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

// The records that a query gives, one after the other.
template <typename R>
class Reader {
public:
    // with: text before SELECT, rest: text after the table's name; parameters: theirs, which must outlive the reader.
    template <typename... Parameters>
    Reader(soci::session& sql, const std::string& with, const std::string& rest, const Parameters&... parameters)
        : m_statement(sql)
    {
        (m_statement.in(parameters), ...);
        m_row.bindOut(m_statement);
        m_statement.prepare(with + "SELECT " + columns<R>("\"@\"") + " FROM " + Kind<R>::kTable + " " + rest);
    }

    // Fills the record, all fields but pNext, with the next row; false after the last one.
    bool next(R& record)
    {
        const bool found = m_started ? m_statement.next() : m_statement.first();
        m_started = true;
        if (found) {
            m_row.give(record);
        }
        return found;
    }

private:
    Row<R> m_row;
    Statement m_statement;
    bool m_started = false;
};

// The refusal for a record that is not there.
template <typename R>
Refusal noSuch(int64_t id)
{
    return Refusal(ENOENT, std::string("no ") + Kind<R>::kName + " " + std::to_string(id));
}

// Loads the record of that identifier, all fields but pNext. Throws Refusal ENOENT.
template <typename R>
void load(soci::session& sql, int64_t id, R& record)
{
    if (!Reader<R>(sql, "", "WHERE id = :id", id).next(record)) {
        throw noSuch<R>(id);
    }
}

// A chain that grows at its end.
template <typename R>
class ChainBuilder {
public:
    void append(std::unique_ptr<R> pRecord)
    {
        R* pAdded = pRecord.release();
        m_pEnd == nullptr ? m_pHead.reset(pAdded) : void(m_pEnd->pNext = pAdded);
        m_pEnd = pAdded;
    }

    // The chain becomes the caller's.
    Chain<R> take()
    {
        m_pEnd = nullptr;
        return std::move(m_pHead);
    }

private:
    Chain<R> m_pHead;
    R* m_pEnd = nullptr;
};

// The records that the reader gives.
template <typename R>
Chain<R> readChain(Reader<R>&& reader)
{
    ChainBuilder<R> chain;
    auto pRecord = std::make_unique<R>();
    while (reader.next(*pRecord)) {
        chain.append(std::exchange(pRecord, std::make_unique<R>()));
    }
    return chain.take();
}

// Copies of the records, in the order of their identifiers.
template <typename R>
Chain<R> chainOf(const std::map<int64_t, R>& records)
{
    ChainBuilder<R> chain;
    for (const auto& [id, record] : records) {
        chain.append(std::make_unique<R>(record));
    }
    return chain.take();
}

// Text at the end of an INSERT that has a new record take the place of the one with its identifier.
template <typename R>
std::string orOverwrite()
{
    return std::string(" ON CONFLICT (\"") + Kind<R>::kFields[0].name + "\") DO UPDATE SET " +
           columns<R>("\"@\" = excluded.\"@\"");
}

// Stores new records, many with one statement: each statement is a round trip to the database.
template <typename R>
class Inserter {
public:
    // rest: text after the values.
    explicit Inserter(soci::session& sql, std::string rest = "") : m_sql(sql), m_rest(std::move(rest)) {}

    // Stores the record now or later, by flush() at the latest.
    void insert(const R& record)
    {
        if (m_count == m_rows.size()) {
            m_rows.emplace_back();
        }
        m_rows[m_count].take(record);
        if (++m_count == kMost) {
            flush();
        }
    }

    // Stores what is not stored yet. To be called after the last record: what is left then is lost.
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
    static constexpr size_t kMost = 100;  // rows; with more, statements grow longer than round trips

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
    std::deque<Row<R>> m_rows;  // those of a full statement at most; they stay where they are, as it is bound to them
    size_t m_count = 0;         // of rows that are to be stored
    std::unique_ptr<Statement> m_pStatement;
    size_t m_prepared = 0;  // number of rows that it takes
};

// Writes the record over the stored one, which has its identifier and revision, and gives it its new time and revision.
// What is the same stays unwritten: a text can be long. Throws Refusal EAGAIN when the stored one is not there any
// more.
template <typename R>
void replace(soci::session& sql, R& record, const R& stored)
{
    const int64_t before = record.revision;
    record.mtime = std::time(nullptr);
    ++record.revision;
    Row<R> row;
    row.take(record);
    Statement statement(sql);
    std::string changes;
    for (size_t i = 0; i < Kind<R>::kFields.size(); ++i) {
        const Field<R>& field = Kind<R>::kFields[i];
        if (!isSame(field, record, stored)) {
            row.bindIn(statement, i);
            changes += std::string(changes.empty() ? "\"" : ", \"") + field.name + "\" = :" + field.name;
        }
    }
    statement.in(record.id).in(before);
    statement.prepare(std::string("UPDATE ") + Kind<R>::kTable + " SET " + changes +
                      " WHERE id = :key AND revision = :before");
    if (statement.change() != 1) {
        throw changedSinceRead();
    }
}

// Loads the record of that identifier into the caller's, in a transaction of its own.
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
