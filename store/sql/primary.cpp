// Uses the timeline to recognise a former primary: PostgreSQL counts it up when a standby is promoted, so the highest
// one belongs to the present primary.
#include "store/sql/primary.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <sstream>

#include "store/base/timeouts.h"
#include "store/sql/postgres_connection.h"

namespace store {
namespace {

// The name of a log file begins with the timeline, in hexadecimal digits.
constexpr char kBackendQuery[] =
    "SELECT concat_ws(' ', pg_backend_pid(), system_identifier, CASE WHEN NOT pg_is_in_recovery()"
    " THEN left(pg_walfile_name(pg_current_wal_lsn()), 8) END) FROM pg_control_system()";

std::vector<std::string> split(const std::string& list)
{
    std::vector<std::string> parts;
    std::istringstream stream(list + ',');  // the last part may be empty, too: "5433," for the default port
    for (std::string part; std::getline(stream, part, ',');) {
        parts.push_back(part);
    }
    return parts;
}

std::string percentEncoded(const std::string& text)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        encoded += {'%', kDigits[(c >> 4) & 0xf], kDigits[c & 0xf]};
    }
    return encoded;
}

// Returns the values of a parameter of the URL, one for each server.
std::vector<std::string> valuesOf(const PQconninfoOption* pOptions, const std::string& name)
{
    for (; pOptions != nullptr && pOptions->keyword != nullptr; ++pOptions) {
        if (pOptions->keyword == name && pOptions->val != nullptr) {
            return split(pOptions->val);
        }
    }
    return {};
}

// Returns one URL for each server that the URL names. Parameters at its end replace those before them.
std::vector<std::string> urlsOf(const std::string& url)
{
    const std::unique_ptr<PQconninfoOption, void (*)(PQconninfoOption*)> pOptions(PQconninfoParse(url.c_str(), nullptr),
                                                                                  PQconninfoFree);
    const size_t count = std::max(valuesOf(pOptions.get(), "host").size(), valuesOf(pOptions.get(), "hostaddr").size());
    if (count < 2) {
        return {url};
    }
    std::vector<std::string> urls(count, url);
    for (const char* szName : {"host", "hostaddr", "port"}) {
        const std::vector<std::string> values = valuesOf(pOptions.get(), szName);
        for (size_t i = 0; i < count && !values.empty(); ++i) {
            urls[i] += '&' + std::string(szName) + '=' + percentEncoded(values[std::min(i, values.size() - 1)]);
        }
    }
    if (valuesOf(pOptions.get(), "target_session_attrs").empty()) {
        std::for_each(urls.begin(), urls.end(), [](std::string& each) { each += "&target_session_attrs=read-write"; });
    }
    return urls;
}

}  // namespace

Primary::Primary(const std::string& url) : m_urls(urlsOf(url)) {}

void Primary::tryAnotherFirst() noexcept
{
    m_first = (m_first + 1) % m_urls.size();
}

Backend Primary::accept(PGconn* pConnection)
{
    const std::optional<std::string> answer = ask(pConnection, kBackendQuery, kProbeTimeout);
    if (!answer) {
        requireAnswer(PQtransactionStatus(pConnection) == PQTRANS_IDLE);
        return {};
    }
    Backend backend;
    std::string cluster;
    std::istringstream(*answer) >> backend.process >> cluster >> std::hex >> backend.timeline;
    const std::lock_guard lock(m_mutex);
    require(m_cluster.empty() || m_cluster == cluster, EIO, "the server belongs to another database cluster");
    require(backend.timeline >= m_timeline, EIO, "the server is not the primary, or no longer");
    m_cluster = cluster;
    m_timeline = backend.timeline;
    return backend;
}

bool Primary::isFormer(const Backend& backend) const noexcept
{
    return backend.process != 0 && backend.timeline < m_timeline;
}

void Primary::requireOwnProcess(int64_t process) const
{
    require(process == 0 || process != m_openProcess, EIO, kSharedProcess);
}

}  // namespace store
