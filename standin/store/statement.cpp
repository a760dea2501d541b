// Statements are counted as they are executed, which tells a test how many a call needs.
#include "standin/store/statement.h"

#include "standin/store/store.h"

namespace standin {
namespace {

thread_local uint64_t tStatements = 0;

}  // namespace

Statement& Statement::in(const std::vector<int64_t>& values)
{
    for (const int64_t& value : values) {
        in(value);
    }
    return *this;
}

Statement& Statement::prepare(const std::string& query, bool once)
{
    m_statement.alloc();
    m_statement.prepare(query, once ? soci::details::st_one_time_query : soci::details::st_repeatable_query);
    m_statement.define_and_bind();
    return *this;
}

bool Statement::first()
{
    ++tStatements;
    return m_statement.execute(true);
}

bool Statement::next()
{
    return m_statement.fetch();
}

int64_t Statement::change()
{
    first();
    return m_statement.get_affected_rows();
}

void execute(soci::session& sql, const std::string& query)
{
    Statement(sql).prepare(query).first();
}

uint64_t statementCount()
{
    return tStatements;
}

}  // namespace standin
