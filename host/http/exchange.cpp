// Handles one request from the arrival of its head to the end of its answer.
#include "host/http/exchange.h"

#include <poll.h>

#include <stdexcept>
#include <string>
#include <utility>

#include "host/base/log.h"
#include "host/base/memory_budget.h"
#include "host/calls/answer_coding.h"
#include "host/http/metrics.h"
#include "host/http/request_log.h"
#include "host/http/response.h"

namespace host {

namespace {

// Of one body, in bytes; what exceeds RequestBody::kMaxBytes is read and discarded.
constexpr uint64_t kMaxReceivedBytes = 256 << 20;
// A client that closes only its sending direction gets the answer to a request that takes no longer.
constexpr std::chrono::seconds kShortWork{1};
// Enough for 20,000 records of 16 members and elements each.
constexpr size_t kMaxValues = 320'000;
const store::Cause kTooManyValues{"too_many", "", "the body contains more than 320,000 values"};
constexpr size_t kBytesPerValue = 200;  // that a parsed value takes, with its name
const store::Cause kStopping{"busy", "", "the server is about to stop"};
const store::Cause kStoreAway{"away", "", "the store does not answer; try again"};
const store::Cause kAllHeld{"busy", "", "all handlers are at work, and none has become free for some time; try again"};
const store::Cause kAdministratorsOnly{"not_permitted", "", "only an administrator may read the metrics"};

// Returns whether the other side has closed the connection, or its sending direction.
bool hasPeerClosed(int socket)
{
    pollfd state{socket, POLLRDHUP, 0};
    return poll(&state, 1, 0) > 0;
}

Answer healthAnswer(const ServerState& server)
{
    if (server.isStopping) {
        return errorAnswer(MHD_HTTP_SERVICE_UNAVAILABLE, kStopping);
    }
    if (!store::isStoreAnswering()) {
        return errorAnswer(MHD_HTTP_SERVICE_UNAVAILABLE, kStoreAway);
    }
    if (!server.handlers.isAccepting()) {
        return errorAnswer(MHD_HTTP_SERVICE_UNAVAILABLE, kAllHeld);
    }
    VELQ::APIResponse resp;
    resp.SetSuccess(Json::Value());
    return answerOf(resp);
}

// Returns the metrics, or the refusal of a token whose account may not read them.
Answer metricsAnswerFor(const std::string& tokenHash, const ServerState& server)
{
    const auto session = store::findSession(tokenHash);
    if (!session) {
        return errorAnswer(MHD_HTTP_UNAUTHORIZED);  // revoked since the token was looked up
    }
    return session->isAdministrator ? metricsAnswer(server) : errorAnswer(MHD_HTTP_FORBIDDEN, kAdministratorsOnly);
}

}  // namespace

Exchange::Exchange(Listener& listener, MHD_Connection* pConnection)
    : m_listener(listener),
      m_server(listener.server),
      m_pConnection(pConnection),
      m_socket(socketOf(pConnection)),
      m_body(listener.server.unknownSendersBytes)
{
    ++m_server.exchangeCount;
}

Exchange::~Exchange()
{
    if (!m_isAnswered) {
        log("cut");
    }
    --m_server.exchangeCount;
}

MHD_Result Exchange::begin(const char* szPath, const char* szMethod, const char* szVersion)
{
    try {
        const RequestLine line{szPath, szMethod, szVersion};
        m_refusalStatus = m_listener.isForMetrics
                              ? checkMetricsHead(m_pConnection, line, m_head)
                              : checkHead(m_pConnection, line, m_server.modules, m_server.page, m_head);
    } catch (const std::exception& e) {
        logError("a request could not be checked", e.what());
        m_refusalStatus = MHD_HTTP_INTERNAL_SERVER_ERROR;
    }
    const AccountKey account = m_server.tokenCache.find(m_head.tokenHash);
    m_listener.connections.beginRequest(m_socket, account == kUnknownAccount ? forwardedSender() : "");
    if (m_refusalStatus != 0) {
        return sendsBodyImmediately(m_pConnection) ? MHD_YES : respond(refusal());
    }
    if (m_head.resource == Resource::health) {
        m_answer = healthAnswer(m_server);
    } else if (m_listener.isForMetrics) {
        m_answer = metricsAnswer(m_server);
    }
    if (m_head.tokenHash.empty()) {
        return MHD_YES;
    }
    if (account != kUnknownAccount) {
        setAccount(account);
    }
    return MHD_YES;
}

MHD_Result Exchange::receive(const char* pData, size_t size)
{
    m_receivedBytes += size;
    if (m_refusalStatus == 0 && m_head.resource == Resource::method) {
        m_refusalStatus = m_body.append(pData, size);
    }
    if (m_refusalStatus != 0) {
        m_body.drop();
    }
    return m_receivedBytes <= kMaxReceivedBytes ? MHD_YES : MHD_NO;
}

MHD_Result Exchange::finish()
{
    m_listener.connections.endArrival(m_socket);
    if (m_refusalStatus != 0) {
        return respond(refusal());
    }
    if (m_head.resource == Resource::file) {
        return respondWithFile();
    }
    if (m_answer) {
        return respond(*m_answer);
    }
    MHD_suspend_connection(m_pConnection);  // before the job is queued: a worker may resume it at once
    if (!enqueueJob()) {
        MHD_resume_connection(m_pConnection);
    }
    return MHD_YES;
}

bool Exchange::enqueueJob() noexcept
{
    const bool isQueued = m_server.handlers.add(m_account, [this] { return runJob(); });
    if (!isQueued) {
        m_refusalStatus = MHD_HTTP_SERVICE_UNAVAILABLE;
    }
    return isQueued;
}

FairQueue::Completion Exchange::runJob() noexcept
{
    const FairQueue::Completion resume = [pConnection = m_pConnection] { MHD_resume_connection(pConnection); };
    if (m_server.endsRequests) {
        m_refusalStatus = MHD_HTTP_SERVICE_UNAVAILABLE;
        return resume;
    }
    try {
        const auto account = authenticate();
        if (!account) {
            return resume;
        }
        if (account->uid != m_account) {  // the job waited in the queue of unknown senders or of another account
            setAccount(account->uid);
            return enqueueJob() ? FairQueue::Completion() : resume;
        }
        m_head.account = *account;
        if (m_head.resource != Resource::method) {
            answerQuery();
        } else if (!answerCall()) {
            return FairQueue::Completion();
        }
    } catch (const std::exception& e) {
        logError("a request could not be served", e.what());
        m_refusalStatus = MHD_HTTP_INTERNAL_SERVER_ERROR;
    }
    return resume;
}

void Exchange::refuseWithoutStore(const char* szFailed, const std::exception& error)
{
    m_refusalStatus = MHD_HTTP_SERVICE_UNAVAILABLE;
    m_isStoreAway = true;
    // An outage is in the log already.
    if (store::isStoreAnswering() && m_server.storeErrorLimit.isDue()) {
        logError(szFailed, error.what());
    }
}

std::optional<store::Account> Exchange::authenticate()
{
    std::optional<store::Account> account;
    try {
        account = store::findAccountByToken(m_head.tokenHash);
    } catch (const std::runtime_error& e) {
        refuseWithoutStore("the owner of a token could not be looked up", e);
        return std::nullopt;
    }
    m_server.tokenCache.update(m_head.tokenHash, account ? std::optional(account->uid) : std::nullopt);
    if (!account) {
        m_refusalStatus = MHD_HTTP_UNAUTHORIZED;
    }
    return account;
}

void Exchange::answerQuery()
{
    try {
        m_answer = inCoding(m_head.resource == Resource::metrics
                                ? metricsAnswerFor(m_head.tokenHash, m_server)
                                : m_head.pQuery->pAnswer({m_head.account, m_head.tokenHash, m_head.parameters}),
                            m_head.coding);
    } catch (const std::runtime_error& e) {
        refuseWithoutStore("a query could not be answered", e);
    }
}

bool Exchange::answerCall()
{
    if (!onlyReads(*m_head.pRow)) {
        m_answer = inCoding(*runHandler(nullptr), m_head.coding);
        return true;
    }
    const Read read{*m_head.pRow, m_head.account, m_body.text(), m_head.coding, m_head.knownTags, m_mayWait};
    auto answer = m_server.readAnswers.answer(
        read, [this](const EarlyAnswer& onSuccess) { return runHandler(onSuccess); },
        [this](std::optional<Answer> early) { takeAnswer(std::move(early)); });
    if (!answer) {
        return false;
    }
    m_answer = std::move(answer);
    m_body.drop();
    return true;
}

void Exchange::takeAnswer(std::optional<Answer> answer) noexcept
{
    m_mayWait = false;
    m_answer = std::move(answer);
    if (m_answer || !enqueueJob()) {
        m_body.drop();
        MHD_resume_connection(m_pConnection);
    }
}

std::optional<Answer> Exchange::runHandler(const EarlyAnswer& onSuccess)
{
    const size_t values = store::countJsonValues(m_body.text());
    if (values > kMaxValues) {
        return errorAnswer(MHD_HTTP_CONTENT_TOO_LARGE, kTooManyValues);
    }
    MemoryShare parsed;
    if (!parsed.tryAdd(m_body.text().size() + values * kBytesPerValue)) {
        return errorAnswer(MHD_HTTP_SERVICE_UNAVAILABLE);
    }
    Json::Value jParams;
    try {
        jParams = parseParameters(m_body.text());
    } catch (const std::runtime_error&) {  // not std::bad_alloc, which is no fault of the body
        return errorAnswer(MHD_HTTP_BAD_REQUEST);
    }
    m_body.drop();
    const store::Account account = m_head.account;  // the exchange may be destroyed once the answer is taken
    if (onSuccess) {
        return answerRead(m_head.pRow->pHandler, account, std::move(jParams), onSuccess);
    }
    const store::RequestWatch watch{m_head.tokenHash,
                                    [this, start = std::chrono::steady_clock::now()] { return whyToStop(start); }};
    return answerRequest(*m_head.pRow, account, std::move(jParams), watch);
}

std::string Exchange::whyToStop(std::chrono::steady_clock::time_point start) const
{
    const auto worked = std::chrono::steady_clock::now() - start;
    if (m_server.endsRequests) {
        return "the server is shutting down";
    }
    if (worked > m_server.longestRequest) {
        return "a request may work for " + std::to_string(m_server.longestRequest.count()) + " seconds";
    }
    return worked > kShortWork && hasPeerClosed(m_socket) ? "the client has gone" : "";
}

void Exchange::setAccount(AccountKey account)
{
    m_account = account;
    m_body.setSenderKnown();
    m_listener.connections.setAccount(m_socket, account);
}

Answer Exchange::refusal() const
{
    if (m_refusalStatus == MHD_HTTP_METHOD_NOT_ALLOWED) {
        return errorAnswer(m_refusalStatus,
                           {"no_such_method", "", std::string("takes only ") + allowedMethods(m_head)});
    }
    return errorAnswer(m_refusalStatus, m_isStoreAway ? kStoreAway : store::Cause{"", "", m_head.szRefusal});
}

MHD_Result Exchange::respond(const Answer& answer)
{
    const bool closeAfterResponse = m_head.closeAfterResponse || m_server.isStopping;
    const MHD_Result queued = queueAnswer(m_pConnection, answer, allowedMethods(m_head), closeAfterResponse);
    return noteAnswer(queued, answer.code, answer.text);
}

MHD_Result Exchange::respondWithFile()
{
    int status = 0;
    const MHD_Result queued = queueFile(m_pConnection, *m_head.pFile, m_server.isStopping, status);
    static const auto kFile = std::make_shared<const std::vector<std::string>>();  // files stay in memory anyway
    return noteAnswer(queued, status, kFile);
}

std::string Exchange::forwardedSender() const
{
    const bool isForwarded = !m_server.proxies.empty() && m_server.proxies.contains(peerOf(m_pConnection));
    return isForwarded ? senderOf(forwardedClientOf(m_pConnection)) : "";
}

MHD_Result Exchange::noteAnswer(MHD_Result queued, int code, const AnswerText& text)
{
    m_isAnswered = true;
    m_listener.connections.beginAnswer(m_socket, text);
    m_server.connections.freeMemory(excessMemory());
    log(std::to_string(code));
    return queued;
}

void Exchange::log(const std::string& code) const noexcept
{
    const auto spent = std::chrono::steady_clock::now() - m_start;
    m_server.requestMetrics.count(m_head, spent, code);
    // Proxies and monitors ask again and again, which would fill the log.
    const bool isMonitoring = m_head.resource == Resource::health || m_listener.isForMetrics;
    if (!isMonitoring || m_refusalStatus != 0) {
        logRequest(m_head, spent, code);
    }
}

int socketOf(MHD_Connection* pConnection)
{
    return MHD_get_connection_info(pConnection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
}

}  // namespace host
