// One request and its answer. A request is judged by its head before any of its body is taken in; the body of a refused
// one is read and thrown away, so that the client gets to see its answer. Its token is looked up when its handler is to
// start: what counts is whose it is then.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

#include <microhttpd.h>

#include "host/base/log.h"
#include "host/calls/dispatch.h"
#include "host/calls/fair_queue.h"
#include "host/calls/handler_pool.h"
#include "host/calls/module_loader.h"
#include "host/calls/token_cache.h"
#include "host/http/page.h"
#include "host/http/request_body.h"
#include "host/http/request_head.h"
#include "host/http/waiting_sockets.h"

namespace host {

// What the exchanges of a server share. Any thread may use it.
struct ServerState {
    const ModuleSet& modules;
    const Page& page;
    WaitingSockets waiting;
    TokenCache tokenCache{};
    BodyMemory bodyMemory{};
    LogRateLimit storeTrouble{};
    std::atomic<int> exchanges{0};        // how many there are
    std::atomic<bool> isStopping{false};  // answers are the last on their connections
    HandlerPool handlers;
};

// From a request's head to the end of its answer; its log line is written with the answer, or at the end when there was
// none. The library's callbacks make the calls, in the order in which they stand here, on the thread that serves the
// connection. Each throws std::exception when it can do nothing for the request, and returns MHD_NO to have the
// connection closed. The connection is suspended, and the exchange a worker's, while it waits for its handler and while
// that runs.
class Exchange {
public:
    // server: outlives the exchange. pConnection: the library's; it lives until the exchange is over.
    Exchange(ServerState& server, MHD_Connection* pConnection);
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    ~Exchange();

    // The head has arrived. szPath, szMethod: as for checkHead.
    MHD_Result begin(const char* szPath, const char* szMethod);

    // A piece of the body has arrived, of that many bytes.
    MHD_Result receive(const char* pData, size_t size);

    // The request is complete; after its handler the call is made again, and answers.
    MHD_Result finish();

private:
    // These two tell whether the request waits for a worker from now on; then the exchange is not the caller's any
    // more. Otherwise it is ready to be answered, and the connection is to be resumed.
    bool wait() noexcept;
    bool serve() noexcept;  // on a worker

    std::optional<store::Account> findAccount();  // the token's; m_isStoreAway when the store does not say
    int runHandler();                             // fills m_answer, or returns the HTTP status of the refusal
    void recognise(AccountKey account);           // the request counts for the account from now on
    Answer refused() const;

    // These three on the connection's thread.
    MHD_Result respond(Answer answer);
    MHD_Result respondWithFile();
    MHD_Result noteAnswer(MHD_Result queued, int code);  // code: for the log

    void log(const std::string& code) const noexcept;  // a proxy asks for the health every second: no line for that

    ServerState& m_server;
    MHD_Connection* const m_pConnection;
    const int m_socket;
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    RequestHead m_head;
    RequestBody m_body;
    AccountKey m_account = kUnknownAccount;  // whom the request counts for
    Answer m_answer;                         // once it is handled: the handler's, or the server's own
    bool m_isHandled = false;
    int m_refused = 0;  // HTTP status of the refusal, 0 for none
    bool m_isStoreAway = false;
    uint64_t m_arrived = 0;  // bytes of the body, thrown away ones too
    bool m_isAnswered = false;
};

// The connection's socket; it stays the library's.
int socketOf(MHD_Connection* pConnection);

}  // namespace host
