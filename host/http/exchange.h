// Handles one request from the arrival of its head to the end of its answer.
//
// The head is checked before any of the body is stored. The body of a refused request is read and discarded, so that
// the client gets to see the answer. The token is looked up when a worker is about to run the handler, so that a token
// which was revoked while the request arrived or waited is refused.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>

#include <microhttpd.h>

#include "host/calls/dispatch.h"
#include "host/calls/fair_queue.h"
#include "host/calls/read_answers.h"
#include "host/http/connections.h"
#include "host/http/request_body.h"
#include "host/http/request_head.h"
#include "host/http/server_state.h"

namespace host {

// One request and its answer. The request is logged with its answer, or, when it gets no answer, when the object is
// destroyed.
//
// The library's callbacks call begin, receive and finish, in this order, on the thread that serves the connection. Each
// throws std::exception when the request must be dropped, and returns MHD_NO to have the connection closed. While
// the handler waits for a worker and runs, the connection is suspended and only the worker uses the exchange.
class Exchange {
public:
    // listener: outlives the exchange. pConnection: belongs to the library and outlives the exchange.
    Exchange(Listener& listener, MHD_Connection* pConnection);
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    ~Exchange();

    // The head has arrived. The arguments are those of RequestLine.
    MHD_Result begin(const char* szPath, const char* szMethod, const char* szVersion);

    // That many bytes of the body have arrived.
    MHD_Result receive(const char* pData, size_t size);

    // The request has arrived completely. Answers it, or queues its handler; the library then calls this again after
    // the handler.
    MHD_Result finish();

private:
    // Queues runJob for m_account. Returns false, and sets the refusal, when the queue is full. After true, another
    // thread may already use the exchange or have destroyed it.
    bool enqueueJob() noexcept;

    // Authenticates the sender and answers the call, on a worker. Returns the call that resumes the connection, or an
    // empty one when the job was queued once more or the request waits for the answer to another.
    FairQueue::Completion runJob() noexcept;

    // Looks the token up. Returns nothing, and sets the refusal, when no account has it or the store does not answer.
    std::optional<store::Account> authenticate();

    // Sets the refusal of a request for which the store fails, and logs it.
    void refuseWithoutStore(const char* szFailed, const std::exception& error);

    // Sets the answer to a query, or the metrics, or the refusal when the store fails.
    void answerQuery();

    // Sets the answer: the handler's, or another with the same content. Returns false when the handler's was taken
    // before it returned or the request waits for the answer to another; another thread may then already use the
    // exchange or have destroyed it.
    bool answerCall();

    // Takes the answer of a handler that still runs and resumes the connection; or, without an answer, queues the job
    // once more.
    void takeAnswer(std::optional<Answer> answer) noexcept;

    // Parses the body and calls the handler, or refuses the body. onSuccess: as for answerRead(); empty when the method
    // may change something.
    std::optional<Answer> runHandler(const EarlyAnswer& onSuccess);

    // Returns why the handler, which has worked since the start, must end before its next change; empty: it need not.
    std::string whyToStop(std::chrono::steady_clock::time_point start) const;

    // Assigns the request to the account: in the queue, in the body memory and among the connections.
    void setAccount(AccountKey account);

    Answer refusal() const;

    // Only the connection's thread calls the next four functions.
    MHD_Result respond(const Answer& answer);
    MHD_Result respondWithFile();
    // code: for the log. text: what is sent, for the bound on memory.
    MHD_Result noteAnswer(MHD_Result queued, int code, const AnswerText& text);
    std::string forwardedSender() const;  // empty when the request does not come through a trusted proxy

    void log(const std::string& code) const noexcept;

    const Listener& m_listener;
    ServerState& m_server;
    MHD_Connection* const m_pConnection;
    const int m_socket;
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    RequestHead m_head;
    RequestBody m_body;
    AccountKey m_account = kUnknownAccount;  // the account for which the job is queued
    bool m_mayWait = true;                   // for the answer to another request
    std::optional<Answer> m_answer;          // to the call, the query or the health check, or the metrics
    int m_refusalStatus = 0;                 // HTTP status, 0 while the request is not refused
    bool m_isStoreAway = false;              // whether it is refused because the store does not answer
    uint64_t m_receivedBytes = 0;            // of the body, including discarded ones
    bool m_isAnswered = false;
};

// Returns the socket of the connection, which owns it.
int socketOf(MHD_Connection* pConnection);

}  // namespace host
