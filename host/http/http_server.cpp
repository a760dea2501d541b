// Runs the HTTP server: starts the library's daemon, passes its callbacks on to exchanges, and stops it.
#include "host/http/http_server.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <iterator>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <stop_token>
#include <thread>
#include <utility>

#include <microhttpd.h>

#include "host/base/log.h"
#include "host/base/memory_budget.h"
#include "host/base/text.h"
#include "host/http/exchange.h"
#include "platform/velq_core.h"
#include "store/store.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr rlim_t kMaxConnections = 8192;
constexpr rlim_t kOtherDescriptors = 256;  // for files, database connections and the threads' epoll instances
constexpr unsigned kMetricsConnections = 16;
constexpr size_t kHeaderMemory = 32 << 10;
constexpr Places kQueueSlots{.shared = 1024, .reserved = 256};  // for requests that wait for a worker
// Times after the signal to stop. From the first on, requests that make many changes end before their next one. The
// second limits the wait for requests that still arrive and for answers that are still read, the third any wait.
constexpr std::chrono::seconds kGrace{2};
constexpr std::chrono::seconds kTransferTimeout{5};
constexpr std::chrono::seconds kDrainTimeout{30};
constexpr std::chrono::seconds kReceiveTime{30};  // for the head of a request, and for its body
constexpr std::chrono::seconds kReadWindow{30};
constexpr uint64_t kKeptShare = 4;  // kept answers take a quarter of the bounded memory at most

// The library calls this when the head of a request has arrived, for each part of its body, at its end, and once more
// when the connection is resumed.
MHD_Result onRequest(void* pListener, MHD_Connection* pConnection, const char* szPath, const char* szMethod,
                     const char* szVersion, const char* pData, size_t* pSize, void** ppExchange)
{
    try {
        if (*ppExchange == nullptr) {
            auto* pExchange = new Exchange(*static_cast<Listener*>(pListener), pConnection);
            *ppExchange = pExchange;  // onCompleted deletes it
            return pExchange->begin(szPath, szMethod, szVersion);
        }
        Exchange& exchange = *static_cast<Exchange*>(*ppExchange);
        return *pSize > 0 ? exchange.receive(pData, std::exchange(*pSize, 0)) : exchange.finish();
    } catch (const std::exception& e) {
        logError("a request was dropped", e.what());
        return MHD_NO;
    }
}

// The library calls this when a request is over, answered or not.
void onCompleted(void* pListener, MHD_Connection* pConnection, void** ppExchange, MHD_RequestTerminationCode)
{
    static_cast<Listener*>(pListener)->connections.endRequest(socketOf(pConnection));
    delete static_cast<Exchange*>(std::exchange(*ppExchange, nullptr));
}

// The library calls this when it has accepted a connection, and before it closes the socket.
void onConnection(void* pListener, MHD_Connection* pConnection, void**, MHD_ConnectionNotificationCode code)
{
    const Listener& listener = *static_cast<Listener*>(pListener);
    const int fd = socketOf(pConnection);
    if (code != MHD_CONNECTION_NOTIFY_STARTED) {
        listener.connections.close(fd);
        return;
    }
    try {
        const AddressName peer = peerOf(pConnection);
        listener.connections.open(fd, listener.server.proxies.contains(peer) ? "" : senderOf(peer));
    } catch (const std::exception&) {
        shutdown(fd, SHUT_RDWR);  // no memory
    }
}

// Keeps paths undecoded, so that each method has only one URL.
size_t keepEscapes(void*, MHD_Connection*, char* szText)
{
    return strlen(szText);
}

// Raises the limit on descriptors to what the connections need, up to the hard limit. Returns the number of connections
// that the limit allows.
unsigned reserveDescriptors()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, kMaxConnections + kOtherDescriptors));
    setrlimit(RLIMIT_NOFILE, &limit);
    const rlim_t others = std::min(kOtherDescriptors, limit.rlim_cur / 2);
    return static_cast<unsigned>(std::min(kMaxConnections, limit.rlim_cur - others));
}

// Starts the HTTP library on the socket. threads: size of its pool; 0 for one thread without a pool.
MHD_Daemon* startDaemon(Listener& listener, int listenFd, unsigned threads, unsigned connections, unsigned idleTimeout)
{
    constexpr unsigned kFlags = MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_ITC | MHD_ALLOW_SUSPEND_RESUME;
    MHD_Daemon* pDaemon = MHD_start_daemon(kFlags, 0, nullptr, nullptr, onRequest, &listener,      //
                                           MHD_OPTION_LISTEN_SOCKET, listenFd,                     //
                                           MHD_OPTION_THREAD_POOL_SIZE, threads,                   //
                                           MHD_OPTION_CONNECTION_LIMIT, connections,               //
                                           MHD_OPTION_CONNECTION_MEMORY_LIMIT, kHeaderMemory,      //
                                           MHD_OPTION_CONNECTION_TIMEOUT, idleTimeout,             //
                                           MHD_OPTION_STRICT_FOR_CLIENT, 0,                        //
                                           MHD_OPTION_UNESCAPE_CALLBACK, keepEscapes, nullptr,     //
                                           MHD_OPTION_NOTIFY_COMPLETED, onCompleted, &listener,    //
                                           MHD_OPTION_NOTIFY_CONNECTION, onConnection, &listener,  //
                                           MHD_OPTION_END);
    if (pDaemon == nullptr) {
        throw std::runtime_error(std::string("the HTTP server cannot be started: ") + strerror(errno));
    }
    return pDaemon;
}

// Returns the URL of the daemon. address: on which it was to listen.
std::string urlOf(MHD_Daemon* pDaemon, const std::string& address)
{
    const unsigned port = MHD_get_daemon_info(pDaemon, MHD_DAEMON_INFO_BIND_PORT)->port;
    return "http://" + address.substr(0, address.rfind(':')) + ':' + std::to_string(port);
}

// Returns whether a request is in progress, or a handler still releases what it made an answer of.
bool isWorking(const ServerState& server)
{
    return server.exchangeCount > 0 || server.handlers.isBusy();
}

// Lets proxies learn from the health check that the server stops. Another signal ends the wait.
void drain(ServerState& server, unsigned seconds, const sigset_t& stopSignals)
{
    server.isStopping = true;
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    int received = -1;
    while (received == -1 && Clock::now() < end) {
        const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(end - Clock::now()).count();
        const timespec time{left / 1'000'000'000, left % 1'000'000'000};
        received = sigtimedwait(&stopSignals, nullptr, &time);  // -1 also when the process was stopped and continued
    }
}

// Stops accepting connections, waits for the requests in progress and stops the daemon. The handlers are stopped before
// the daemon, because no worker may resume a connection of a stopped daemon; a request that arrives in between is
// refused.
void stopDaemon(ServerState& server, MHD_Daemon* pDaemon)
{
    const MHD_socket listenFd = MHD_quiesce_daemon(pDaemon);
    shutdown(listenFd, SHUT_RDWR);  // refuses new connections instead of leaving them in the backlog
    const auto start = Clock::now();
    auto end = start + kTransferTimeout;
    for (auto now = start; isWorking(server) && now < std::min(end, start + kDrainTimeout); now = Clock::now()) {
        server.endsRequests = now > start + kGrace;
        if (server.handlers.isBusy()) {
            end = std::max(end, now + kGrace);  // for the handler's answer
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (server.exchangeCount > 0) {
        writeLog("zemhost: stopped before every request was answered");
    }
    if (server.handlers.isBusy()) {
        flushLog();
        _exit(0);  // MHD_stop_daemon would wait for the handlers
    }
    server.handlers.stop();
    MHD_stop_daemon(pDaemon);
    close(listenFd);
}

// Blocks the signals that stop the server in the calling thread and in those that it starts from now on.
sigset_t blockStopSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

ConnectionLimits connectionLimits(size_t connections, unsigned idleTimeout)
{
    return {.all = connections - connections / 8,
            .perAddress = connections / 2,
            .perAccount = connections / 8,
            .headTime = std::chrono::seconds(idleTimeout) + kReceiveTime,
            .bodyTime = kReceiveTime,
            .readWindow = kReadWindow};
}

std::set<AddressName> namesOf(const std::vector<std::string>& proxies)
{
    std::set<AddressName> names;
    std::transform(proxies.begin(), proxies.end(), std::inserter(names, names.end()), addressNamed);
    return names;
}

// Sets the bound on memory. Returns how much of it kept answers may take.
size_t limitMemory(const ServeOptions& options)
{
    const uint64_t all = options.memoryMib > 0 ? uint64_t{options.memoryMib} << 20 : defaultMemoryLimit();
    setMemoryLimit(all);
    return std::min(uint64_t{options.keptAnswersMib} << 20, all / kKeptShare);
}

// Ends slow connections and gives unused memory back to the system, every second until it is told to stop. Reading the
// metrics takes little memory, so their connections are kept when memory is short.
void keepWithinLimits(const std::stop_token& stop, Connections& connections, Connections& metricsConnections)
{
    std::mutex mutex;
    std::unique_lock lock(mutex);
    std::condition_variable_any wake;
    while (!stop.stop_requested()) {
        connections.endSlow();
        metricsConnections.endSlow();
        connections.freeMemory(excessMemory());
        releaseFreeMemory();
        wake.wait_for(lock, stop, std::chrono::seconds(1), [] { return false; });
    }
}

void echoFailures()
{
    giTerminalDebug = 1;
    setvbuf(stdout, nullptr, _IOLBF, 0);  // line buffering, so that each line appears at once
}

}  // namespace

void serve(const ModuleSet& modules, const StaticFiles& page, const ServeOptions& options)
{
    signal(SIGPIPE, SIG_IGN);
    const sigset_t stopSignals = blockStopSignals();
    const unsigned connections = reserveDescriptors();
    const LogThread logThread;
    if (options.echoesFailures) {
        echoFailures();
    }
    store::setChangeSink([](const std::string& line) { writeLog("change: " + line); });
    store::setOutageSink([](const std::string& line) { writeLog("zemhost: " + printable(line)); });
    ServerState server{.modules = modules,
                       .page = page,
                       .proxies = namesOf(options.proxies),
                       .connections = Connections(connectionLimits(connections, options.idleTimeout)),
                       .readAnswers = ReadAnswers(limitMemory(options)),
                       .longestRequest = std::chrono::seconds(options.requestSeconds),
                       .handlers = HandlerPool({options.connections, 2 * options.connections}, kQueueSlots)};
    Connections metricsConnections(connectionLimits(kMetricsConnections, options.idleTimeout));
    Listener listener{server, server.connections, false};
    Listener metricsListener{server, metricsConnections, true};
    const std::jthread limiter([&server, &metricsConnections](const std::stop_token& stop) {
        keepWithinLimits(stop, server.connections, metricsConnections);
    });
    std::unique_ptr<MHD_Daemon, decltype(&MHD_stop_daemon)> pMetrics(nullptr, MHD_stop_daemon);
    if (options.metricsFd >= 0) {
        pMetrics.reset(startDaemon(metricsListener, options.metricsFd, 0, kMetricsConnections, options.idleTimeout));
    }
    const unsigned threads = std::max(4u, std::thread::hardware_concurrency());
    MHD_Daemon* pDaemon = startDaemon(listener, options.listenFd, threads, connections, options.idleTimeout);
    std::cout << "listening on " << urlOf(pDaemon, options.address) << std::endl;
    if (pMetrics) {
        std::cout << "metrics on " << urlOf(pMetrics.get(), options.metricsAddress) << "/metrics" << std::endl;
    }
    int received = 0;
    sigwait(&stopSignals, &received);
    drain(server, options.drainSeconds, stopSignals);
    pMetrics.reset();
    stopDaemon(server, pDaemon);
    store::setChangeSink(nullptr);
    store::setOutageSink(nullptr);
}

}  // namespace host
