// How a transaction begins differs between the databases; both let only one writing transaction run at a time.
#include "standin/store/transaction.h"

#include "standin/store/session.h"
#include "standin/store/snapshot.h"
#include "standin/store/statement.h"
#include "standin/store/writer_line.h"

namespace standin {
namespace {

WriterLine gWriterLine;

// A writer sees the store as it is, not as the thread's last listing found it.
Connection connectionFor(Access access)
{
    if (access == Access::write) {
        dropSnapshot();
    }
    return Connection();
}

void begin(soci::session& sql, Access access)
{
    if (!isPostgres()) {
        execute(sql, access == Access::write ? "BEGIN IMMEDIATE" : "BEGIN");
        return;
    }
    execute(sql, access == Access::write ? "BEGIN" : "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY");
    if (access == Access::write) {
        execute(sql, "LOCK TABLE meta IN EXCLUSIVE MODE");
    }
}

// Whether there was a connection to roll back on.
bool rollBack(soci::session& sql) noexcept
{
    try {
        execute(sql, "ROLLBACK");
        return true;
    } catch (...) {
        return false;
    }
}

// A database server that was restarted leaves dead connections in the pool: connect anew before giving up. On a live
// one, what a transaction may fail to begin for is a lock that others keep.
void beginOrReconnect(Connection& connection, Access access)
{
    try {
        begin(connection.sql(), access);
    } catch (const std::runtime_error&) {
        require(!rollBack(connection.sql()) && errnoOfException() != EBUSY, EBUSY);
        connection.reconnect();
        begin(connection.sql(), access);
    }
}

}  // namespace

Transaction::Turn::Turn(Access access) : isTaken(access == Access::write)
{
    if (isTaken) {
        gWriterLine.enter();
    }
}

Transaction::Turn::~Turn()
{
    if (isTaken) {
        gWriterLine.leave();
    }
}

Transaction::Transaction(Access access) : m_turn(access), m_connection(connectionFor(access))
{
    beginOrReconnect(m_connection, access);
}

Transaction::~Transaction()
{
    if (m_open && !rollBack(m_connection.sql())) {
        m_connection.close();  // nobody knows what state it is in
    }
}

soci::session& Transaction::sql()
{
    return m_connection.sql();
}

void Transaction::commit()
{
    try {
        execute(m_connection.sql(), "COMMIT");
    } catch (const std::runtime_error&) {
        require(!m_turn.isTaken || !isLost(m_connection.sql()), EIO,
                "the database did not answer: the change may have been made, or may not");
        throw;
    }
    m_open = false;
}

}  // namespace standin
