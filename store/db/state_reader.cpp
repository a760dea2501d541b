// A name begins with a random number of the connection, so that names of different openings and connections differ.
#include "store/db/state_reader.h"

#include <cstdint>
#include <cstdio>
#include <optional>
#include <random>
#include <stdexcept>
#include <utility>

#include <soci/sqlite3/soci-sqlite3.h>

#include "store/base/timeouts.h"
#include "store/sql/session.h"
#include "store/sql/statement.h"

namespace store {
namespace {

using Clock = std::chrono::steady_clock;

// Equal texts of pg_current_snapshot() mean that the same transactions are visible, but only on one run of the server:
// a crash may lose transactions whose numbers are given again, and a standby or a restored backup counts on from its
// own. The start of the server and the number of its process tell runs apart even where a proxy keeps the connection. A
// standby leaves running transactions out of the text, so its state has no name. Neither has that of an engine that
// only speaks the protocol and may take snapshots in another way: it does not have the column xmin.
constexpr char kPostgresState[] =
    "SELECT concat_ws(' ', pg_backend_pid(), extract(epoch FROM pg_postmaster_start_time()), pg_current_snapshot(),"
    " xmin) FROM meta WHERE name = 'version' AND NOT pg_is_in_recovery()";

bool isSameFile(const struct stat& one, const struct stat& other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

StateReader::StateReader(Address address) : m_address(std::move(address))
{
    if (!m_address.isPostgres) {
        stat(m_address.place.c_str(), &m_file);
    }
}

std::string StateReader::read()
{
    std::unique_lock lock(m_mutex);
    if (!m_changed.wait_for(lock, kStateTimeout, [this] { return !m_isInUse; })) {
        return "";
    }
    m_isInUse = true;
    lock.unlock();
    std::string name = readInTurn();
    lock.lock();
    m_isInUse = false;
    m_changed.notify_one();
    return name;
}

std::string StateReader::readInTurn() noexcept
try {
    if (Clock::now() < m_nextTry) {
        return "";
    }
    return m_address.isPostgres ? readPostgres() : readSqlite();
} catch (const std::exception&) {
    m_pSqlite.reset();
    m_pPostgres.reset();
    m_nextTry = Clock::now() + kStateRetryPause;
    return "";
}

// SQLite counts the commits that the reader's connection sees, but neither notices a file that took the place of the
// open one nor a backup that was copied over it; the time of the file's last change shows the latter.
std::string StateReader::readSqlite()
{
    struct stat file = {};
    if (stat(m_address.place.c_str(), &file) != 0 || !isSameFile(file, m_file)) {
        return "";
    }
    if (m_pSqlite == nullptr) {
        auto pSqlite = std::make_unique<soci::session>();
        openSession(*pSqlite, *soci::factory_sqlite3(), "dbname=\"" + m_address.place + "\" readonly=1 nocreate=1");
        m_pSqlite = std::move(pSqlite);
        takeNewTag();
    }
    const int64_t version = number(*m_pSqlite, "PRAGMA data_version");
    return m_tag + std::to_string(version) + ' ' + std::to_string(file.st_size) + ' ' +
           std::to_string(file.st_ctim.tv_sec) + '.' + std::to_string(file.st_ctim.tv_nsec);
}

std::string StateReader::readPostgres()
{
    if (m_pPostgres == nullptr || m_address.pPrimary->isFormer(m_pPostgres->backend())) {
        m_pPostgres.reset();
        m_pPostgres = std::make_unique<TimedConnection>(*m_address.pPrimary);
        takeNewTag();
    }
    const std::optional<std::string> state = m_pPostgres->ask(kPostgresState, kStateTimeout);
    if (state.has_value()) {
        return state->empty() ? "" : m_tag + *state;
    }
    if (!m_pPostgres->isIdle()) {
        throw std::runtime_error("the connection is lost");
    }
    m_nextTry = Clock::now() + kNoStatePause;
    return "";
}

void StateReader::takeNewTag()
{
    std::random_device device;
    char szTag[32];
    std::snprintf(szTag, sizeof(szTag), "%08x%08x ", device(), device());
    m_tag = szTag;
}

}  // namespace store
