// How long and how large a request may be, and what becomes of it.
#include "host/exchange.h"

#include <iostream>
#include <string>
#include <utility>

#include "host/request_log.h"
#include "host/response.h"
#include "host/text.h"

namespace host {

namespace {

constexpr std::chrono::seconds kMaxArrival{30};
constexpr uint64_t kMaxDiscarded = 256 << 20;  // bytes

}  // namespace

Exchange::Exchange(ServerState& server, MHD_Connection* pConnection)
    : m_server(server), m_pConnection(pConnection), m_body(server.bodyBytes)
{
    ++m_server.exchanges;
}

Exchange::~Exchange()
{
    if (!m_isAnswered) {
        logRequest(m_head, m_start, "cut");
    }
    --m_server.exchanges;
}

MHD_Result Exchange::begin(const char* szPath, const char* szMethod)
{
    try {
        m_refused = judgeHead(m_pConnection, szPath, szMethod, m_server.modules, m_head);
    } catch (const std::exception& e) {
        std::cerr << "zemhost: a request could not be checked: " + printable(e.what()) + "\n";
        m_refused = MHD_HTTP_INTERNAL_SERVER_ERROR;
    }
    if (m_refused == 0) {
        m_server.waiting.remove(socketOf(m_pConnection));
        return MHD_YES;
    }
    return sendsBodyUnasked(m_pConnection) ? MHD_YES : respond(refusal(m_refused));
}

MHD_Result Exchange::receive(const char* pData, size_t size)
{
    m_arrived += size;
    if (m_refused == 0) {
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
    return respond(m_refused != 0 ? refusal(m_refused) : runHandler());
}

Json::Value Exchange::takeParameters()
{
    Json::Value jParams = parseParameters(m_body.text());
    m_body.drop();
    return jParams;
}

Answer Exchange::runHandler()
{
    Json::Value jParams;
    try {
        jParams = takeParameters();
    } catch (const std::exception&) {
        return refusal(MHD_HTTP_BAD_REQUEST);
    }
    return answerRequest(m_head.pRow->pHandler, m_head.account, std::move(jParams));
}

MHD_Result Exchange::respond(Answer answer)
{
    const int code = answer.code;
    const MHD_Result queued = queueAnswer(m_pConnection, std::move(answer), m_head.isLast || m_server.isStopping);
    m_isAnswered = true;
    logRequest(m_head, m_start, std::to_string(code));
    return queued;
}

int socketOf(MHD_Connection* pConnection)
{
    return MHD_get_connection_info(pConnection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
}

}  // namespace host
