// How long and how large a request may be, and what becomes of it.
#include "host/http/exchange.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "host/base/log.h"
#include "host/http/request_log.h"
#include "host/http/response.h"

namespace host {

namespace {

constexpr std::chrono::seconds kMaxArrival{30};
constexpr uint64_t kMaxDiscarded = 256 << 20;  // bytes
constexpr char kStoreAway[] = "the store does not answer; try again";

Answer healthAnswer()
{
    return store::isStoreAnswering() ? Answer{200, 0, {R"({"success":true,"data":null})"}}
                                     : refusal(MHD_HTTP_SERVICE_UNAVAILABLE, kStoreAway);
}

}  // namespace

Exchange::Exchange(ServerState& server, MHD_Connection* pConnection)
    : m_server(server), m_pConnection(pConnection), m_socket(socketOf(pConnection)), m_body(server.bodyMemory)
{
    ++m_server.exchanges;
}

Exchange::~Exchange()
{
    if (!m_isAnswered) {
        log("cut");
    }
    --m_server.exchanges;
}

MHD_Result Exchange::begin(const char* szPath, const char* szMethod)
{
    try {
        m_refused = checkHead(m_pConnection, szPath, szMethod, m_server.modules, m_server.page, m_head);
    } catch (const std::exception& e) {
        logTrouble("a request could not be checked", e.what());
        m_refused = MHD_HTTP_INTERNAL_SERVER_ERROR;
    }
    if (m_refused != 0) {
        return sendsBodyUnasked(m_pConnection) ? MHD_YES : respond(refused());
    }
    if (m_head.resource != Resource::method) {
        m_answer = m_head.resource == Resource::health ? healthAnswer() : Answer{};
        m_isHandled = true;
        return MHD_YES;
    }
    const AccountKey account = m_server.tokenCache.find(m_head.tokenHash);
    if (account != kUnknownAccount) {
        recognise(account);
    }
    return MHD_YES;
}

MHD_Result Exchange::receive(const char* pData, size_t size)
{
    m_arrived += size;
    if (m_refused == 0 && !m_isHandled) {
        m_refused = m_body.append(pData, size);
    }
    if (m_refused != 0) {
        m_body.drop();
    }
    const bool isInTime = std::chrono::steady_clock::now() - m_start <= kMaxArrival;
    return isInTime && m_arrived <= kMaxDiscarded ? MHD_YES : MHD_NO;
}

MHD_Result Exchange::finish()
{
    if (m_refused == 0 && m_head.resource == Resource::file) {
        return respondWithFile();
    }
    if (m_refused != 0 || m_isHandled) {
        return respond(m_refused != 0 ? refused() : std::move(m_answer));
    }
    MHD_suspend_connection(m_pConnection);  // first: a worker may be done with it before wait returns
    if (!wait()) {
        MHD_resume_connection(m_pConnection);
    }
    return MHD_YES;
}

bool Exchange::wait() noexcept
{
    const auto job = [this]() -> FairQueue::Completion {
        MHD_Connection* const pConnection = m_pConnection;
        if (serve()) {
            return {};
        }
        return [pConnection] { MHD_resume_connection(pConnection); };
    };
    const bool waits = m_server.handlers.add(m_account, job);
    if (!waits) {
        m_refused = MHD_HTTP_SERVICE_UNAVAILABLE;
    }
    return waits;
}

std::optional<store::Account> Exchange::findAccount()
{
    try {
        return store::findAccountByToken(m_head.tokenHash);
    } catch (const std::runtime_error& e) {
        m_refused = MHD_HTTP_SERVICE_UNAVAILABLE;
        m_isStoreAway = true;
        if (store::isStoreAnswering() && m_server.storeTrouble.isDue()) {  // else the store has told of its outage
            logTrouble("the owner of a token could not be looked up", e.what());
        }
        return std::nullopt;
    }
}

bool Exchange::serve() noexcept
try {
    const auto account = findAccount();
    if (m_isStoreAway) {
        return false;
    }
    m_server.tokenCache.update(m_head.tokenHash, account ? std::optional(account->uid) : std::nullopt);
    if (!account) {
        m_refused = MHD_HTTP_UNAUTHORIZED;
        return false;
    }
    if (account->uid != m_account) {  // no longer a stranger: it takes its turn among the account's own requests
        recognise(account->uid);
        return wait();
    }
    m_head.account = *account;
    m_refused = runHandler();
    m_isHandled = true;
    return false;
} catch (const std::exception& e) {
    logTrouble("a request could not be served", e.what());
    m_refused = MHD_HTTP_INTERNAL_SERVER_ERROR;
    return false;
}

int Exchange::runHandler()
{
    Json::Value jParams;
    try {
        jParams = parseParameters(m_body.text());
    } catch (const std::exception&) {
        return MHD_HTTP_BAD_REQUEST;
    }
    m_body.drop();
    m_answer = answerRequest(m_head.pRow->pHandler, m_head.account, std::move(jParams));
    return 0;
}

void Exchange::recognise(AccountKey account)
{
    m_account = account;
    m_body.recognise();
    m_server.waiting.remove(m_socket);
}

Answer Exchange::refused() const
{
    if (m_refused == MHD_HTTP_METHOD_NOT_ALLOWED) {
        return refusal(m_refused, std::string("takes only ") + allowedMethods(m_head.resource));
    }
    return refusal(m_refused, m_isStoreAway ? kStoreAway : "");
}

MHD_Result Exchange::respond(Answer answer)
{
    const int code = answer.code;
    const bool isLast = m_head.isLast || m_server.isStopping;
    const MHD_Result queued = queueAnswer(m_pConnection, std::move(answer), allowedMethods(m_head.resource), isLast);
    return noteAnswer(queued, code);
}

MHD_Result Exchange::respondWithFile()
{
    int status = 0;
    const MHD_Result queued = queueFile(m_pConnection, *m_head.pFile, m_server.isStopping, status);
    return noteAnswer(queued, status);
}

MHD_Result Exchange::noteAnswer(MHD_Result queued, int code)
{
    m_isAnswered = true;
    log(std::to_string(code));
    return queued;
}

void Exchange::log(const std::string& code) const noexcept
{
    const bool isRoutine = m_head.resource == Resource::health && m_refused == 0;
    if (!isRoutine) {
        logRequest(m_head, m_start, code);
    }
}

int socketOf(MHD_Connection* pConnection)
{
    return MHD_get_connection_info(pConnection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
}

}  // namespace host
