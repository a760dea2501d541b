// The library's server: how it is set up, what its callbacks do, how it ends.
#include "host/http/http_server.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>

#include <microhttpd.h>

#include "host/base/log.h"
#include "host/base/text.h"
#include "host/http/exchange.h"
#include "host/http/listen_socket.h"
#include "platform/velq_core.h"
#include "store/store.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr rlim_t kMaxConnections = 8192;
constexpr rlim_t kOtherDescriptors = 256;  // files, database connections, what the threads wait on
constexpr size_t kHeaderMemory = 32 << 10;
constexpr size_t kWaitingRequests = 1024;
constexpr std::chrono::seconds kMaxDrain{30};

// The library calls this with a request's head, then with each piece of its body, then at its end, and once more when
// the connection is resumed.
MHD_Result onRequest(void* pServer, MHD_Connection* pConnection, const char* szPath, const char* szMethod, const char*,
                     const char* pData, size_t* pSize, void** ppExchange)
{
    try {
        if (*ppExchange == nullptr) {
            auto* pExchange = new Exchange(*static_cast<ServerState*>(pServer), pConnection);
            *ppExchange = pExchange;  // onCompleted's to delete
            return pExchange->begin(szPath, szMethod);
        }
        Exchange& exchange = *static_cast<Exchange*>(*ppExchange);
        return *pSize > 0 ? exchange.receive(pData, std::exchange(*pSize, 0)) : exchange.finish();
    } catch (const std::exception& e) {
        logTrouble("a request was dropped", e.what());
        return MHD_NO;
    }
}

// The library calls this when a request is over, answered or not.
void onCompleted(void* pServer, MHD_Connection* pConnection, void** ppExchange, MHD_RequestTerminationCode)
{
    static_cast<ServerState*>(pServer)->waiting.add(socketOf(pConnection));
    delete static_cast<Exchange*>(std::exchange(*ppExchange, nullptr));
}

// The library calls this when it has taken a connection, and before it closes the socket.
void onConnection(void* pServer, MHD_Connection* pConnection, void**, MHD_ConnectionNotificationCode code)
{
    WaitingSockets& waiting = static_cast<ServerState*>(pServer)->waiting;
    if (code == MHD_CONNECTION_NOTIFY_STARTED) {
        waiting.add(socketOf(pConnection));
    } else {
        waiting.remove(socketOf(pConnection));
    }
}

// Paths are compared as they were sent: an escaped one would be another spelling of the same method.
size_t keepEscapes(void*, MHD_Connection*, char* szText)
{
    return strlen(szText);
}

// Allows the process as many descriptors as the connections need, as far as its hard limit goes.
// Returns how many connections there may be.
unsigned reserveDescriptors()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, kMaxConnections + kOtherDescriptors));
    setrlimit(RLIMIT_NOFILE, &limit);
    const rlim_t others = std::min(kOtherDescriptors, limit.rlim_cur / 2);
    return static_cast<unsigned>(std::min(kMaxConnections, limit.rlim_cur - others));
}

MHD_Daemon* startDaemon(ServerState& server, int listenFd, unsigned connections, unsigned idleTimeout)
{
    constexpr unsigned kFlags = MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_ITC | MHD_ALLOW_SUSPEND_RESUME;
    MHD_Daemon* pDaemon =
        MHD_start_daemon(kFlags, 0, nullptr, nullptr, onRequest, &server,                                 //
                         MHD_OPTION_LISTEN_SOCKET, listenFd,                                              //
                         MHD_OPTION_THREAD_POOL_SIZE, std::max(4u, std::thread::hardware_concurrency()),  //
                         MHD_OPTION_CONNECTION_LIMIT, connections,                                        //
                         MHD_OPTION_CONNECTION_MEMORY_LIMIT, kHeaderMemory,                               //
                         MHD_OPTION_CONNECTION_TIMEOUT, idleTimeout,                                      //
                         MHD_OPTION_STRICT_FOR_CLIENT, 1,                                                 //
                         MHD_OPTION_UNESCAPE_CALLBACK, keepEscapes, nullptr,                              //
                         MHD_OPTION_NOTIFY_COMPLETED, onCompleted, &server,                               //
                         MHD_OPTION_NOTIFY_CONNECTION, onConnection, &server,                             //
                         MHD_OPTION_END);
    if (pDaemon == nullptr) {
        throw std::runtime_error(std::string("the HTTP server cannot be started: ") + strerror(errno));
    }
    return pDaemon;
}

unsigned portOf(MHD_Daemon* pDaemon)
{
    return MHD_get_daemon_info(pDaemon, MHD_DAEMON_INFO_BIND_PORT)->port;
}

// Stops taking connections, and waits for the requests that are under way. One that comes in the last moment finds the
// handlers stopped and is refused: when the daemon is stopped, no worker is left that could resume a connection of it.
void stopDaemon(ServerState& server, MHD_Daemon* pDaemon)
{
    server.isStopping = true;
    const MHD_socket listenFd = MHD_quiesce_daemon(pDaemon);
    shutdown(listenFd, SHUT_RDWR);  // whoever comes now is turned away, not kept waiting
    const auto deadline = Clock::now() + kMaxDrain;
    while (server.exchanges > 0 && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (server.exchanges > 0) {
        writeLog("zemhost: stopped before every request was answered");
        flushLog();
        _exit(0);  // the library would wait for a handler without end
    }
    server.handlers.stop();
    MHD_stop_daemon(pDaemon);
    close(listenFd);
}

}  // namespace

void serve(const ModuleSet& modules, const Page& page, const ServeOptions& options)
{
    signal(SIGPIPE, SIG_IGN);
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);  // also in the threads that start from here on

    const unsigned connections = reserveDescriptors();
    const int listenFd = openListenSocket(options.address, options.allowRemote);
    const LogThread logThread;
    if (options.echoesFailures) {
        giTerminalDebug = 1;
        setvbuf(stdout, nullptr, _IOLBF, 0);  // a line is seen when it is written
    }
    store::setChangeSink([](const std::string& line) { writeLog("change: " + line); });
    store::setOutageSink([](const std::string& line) { writeLog("zemhost: " + printable(line)); });
    ServerState server{.modules = modules,
                       .page = page,
                       .waiting = WaitingSockets(connections / 2),
                       .handlers = HandlerPool(options.connections, kWaitingRequests)};
    MHD_Daemon* pDaemon = startDaemon(server, listenFd, connections, options.idleTimeout);
    const std::string ip = options.address.substr(0, options.address.rfind(':'));
    std::cout << "listening on http://" << ip << ':' << portOf(pDaemon) << std::endl;
    int received = 0;
    sigwait(&stopSignals, &received);
    stopDaemon(server, pDaemon);
    store::setChangeSink(nullptr);
    store::setOutageSink(nullptr);
}

}  // namespace host
