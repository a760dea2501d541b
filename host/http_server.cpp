// The HTTP server on libmicrohttpd. A request is judged by its head before any of its body is taken in; the body of a
// refused one is read and thrown away, so that the client gets to see its answer.
#include "host/http_server.h"

#include <netdb.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <list>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <unordered_map>
#include <utility>

#include <microhttpd.h>

#include "host/dispatch.h"
#include "host/text.h"
#include "host/tokens.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr rlim_t kMaxConnections = 8192;
constexpr rlim_t kOtherDescriptors = 256;  // files, database connections, what the threads wait on
constexpr size_t kHeaderMemory = 32 << 10;
constexpr unsigned kIdleSeconds = 10;
constexpr seconds kMaxArrival{30};
constexpr seconds kMaxDrain{30};
constexpr uint64_t kMaxBody = 4 << 20;
constexpr uint64_t kMaxDiscarded = 256 << 20;
constexpr uint64_t kMaxAllBodies = 64 << 20;
constexpr uint64_t kSmallBody = 16 << 10;  // taken in also when large ones fill that

// Sockets on which no request of a known account is under way, the longest waiting first. Any number of them could stay
// by sending a byte now and then, and keep all others out: when there are too many, the first one makes room.
class Waiting {
public:
    explicit Waiting(size_t most) : m_most(most) {}

    // The library's C code calls this: no exception may leave it. A socket that finds no memory is shut down.
    void add(int fd) noexcept
    try {
        std::list<int> added{fd};
        const std::lock_guard lock(m_mutex);
        if (!m_places.try_emplace(fd, added.begin()).second) {
            return;
        }
        m_sockets.splice(m_sockets.end(), added);
        if (m_sockets.size() > m_most) {
            shutdown(m_sockets.front(), SHUT_RDWR);  // the thread that serves it then closes it
            m_places.erase(m_sockets.front());
            m_sockets.pop_front();
        }
    } catch (const std::exception&) {
        shutdown(fd, SHUT_RDWR);
    }

    // To be called before the socket is closed, when its number may come to name another.
    void remove(int fd)
    {
        const std::lock_guard lock(m_mutex);
        if (const auto place = m_places.extract(fd)) {
            m_sockets.erase(place.mapped());
        }
    }

private:
    const size_t m_most;
    std::mutex m_mutex;
    std::list<int> m_sockets;
    std::unordered_map<int, std::list<int>::iterator> m_places;
};

struct Server {
    const ModuleSet& modules;
    Waiting waiting;
    std::atomic<uint64_t> bodyBytes{0};  // of all bodies that are held
    std::atomic<int> requests{0};        // whose answer has not gone out yet
    std::atomic<bool> isStopping{false};
};

// One request from its head to the end of its answer.
struct Exchange {
    explicit Exchange(Server& owner) : server(owner)
    {
        server.requests++;
    }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    ~Exchange()
    {
        dropBody();
        server.requests--;
    }

    void dropBody()
    {
        server.bodyBytes -= body.size();
        std::string().swap(body);
    }

    Server& server;
    Clock::time_point start = Clock::now();
    std::string api, method;  // as the client wrote them
    const VELQ::APIMethod* pRow = nullptr;
    standin::Account account;
    int refused = 0;  // HTTP status of the refusal, 0 for none
    std::string body;
    uint64_t arrived = 0;  // bytes of the body, thrown away ones too
    bool isLast = false;   // the connection cannot be used for another
    bool isAnswered = false;
};

// One line, written at once so that lines of different threads do not mix.
void logLine(const Exchange& exchange, const std::string& code)
{
    const time_t now = time(nullptr);
    tm utc{};
    char szTime[sizeof("YYYY-MM-DDThh:mm:ssZ")];
    strftime(szTime, sizeof(szTime), "%FT%TZ", gmtime_r(&now, &utc));
    const auto spent = std::chrono::duration_cast<milliseconds>(Clock::now() - exchange.start);
    const std::string line = std::string(szTime) + ' ' + logField(exchange.account.name) + ' ' +
                             logField(exchange.api) + ' ' + logField(exchange.method) + ' ' + code + ' ' +
                             std::to_string(spent.count()) + '\n';
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

int socketOf(MHD_Connection* pConnection)
{
    return MHD_get_connection_info(pConnection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
}

// The value of a request header, "" when there is none.
const char* header(MHD_Connection* pConnection, const char* szName)
{
    const char* szValue = MHD_lookup_connection_value(pConnection, MHD_HEADER_KIND, szName);
    return nullptr == szValue ? "" : szValue;
}

uint64_t declaredLength(MHD_Connection* pConnection)
{
    return strtoull(header(pConnection, MHD_HTTP_HEADER_CONTENT_LENGTH), nullptr, 10);
}

// Whether the head gives more than one end of the body: a proxy in front may have read another than the library does.
bool isBodyAmbiguous(MHD_Connection* pConnection)
{
    int ends = 0;
    const auto count = [](void* pEnds, MHD_ValueKind, const char* szName, const char*) {
        const bool isEnd = 0 == strcasecmp(szName, MHD_HTTP_HEADER_CONTENT_LENGTH) ||
                           0 == strcasecmp(szName, MHD_HTTP_HEADER_TRANSFER_ENCODING);
        *static_cast<int*>(pEnds) += isEnd ? 1 : 0;
        return MHD_YES;
    };
    MHD_get_connection_values(pConnection, MHD_HEADER_KIND, count, &ends);
    return 1 < ends;
}

bool sendsBodyUnasked(MHD_Connection* pConnection)
{
    const bool waits = 0 == strcasecmp(header(pConnection, MHD_HTTP_HEADER_EXPECT), "100-continue");
    const bool isChunked = '\0' != *header(pConnection, MHD_HTTP_HEADER_TRANSFER_ENCODING);
    return !waits && (isChunked || 0 < declaredLength(pConnection));
}

// Finds the method that the path names; pRow stays null when there is none.
void resolvePath(const char* szPath, Exchange& exchange)
{
    char szApi[100], szVersion[19], szMethod[100];
    int end = 0;
    exchange.api = szPath;
    if (3 != sscanf(szPath, "/webapi/%99[^/]/%18[0-9]/%99[^/]%n", szApi, szVersion, szMethod, &end) ||
        '\0' != szPath[end] || ('0' == szVersion[0] && '\0' != szVersion[1])) {
        return;
    }
    exchange.api = szApi;
    exchange.method = szMethod;
    exchange.pRow = exchange.server.modules.find(szApi, strtoll(szVersion, nullptr, 10), szMethod);
}

// Judges a request by its head. Returns the HTTP status of the refusal, 0 for none.
int judgeHead(MHD_Connection* pConnection, const char* szUrl, const char* szMethod, Exchange& exchange)
{
    resolvePath(szUrl, exchange);
    exchange.isLast = isBodyAmbiguous(pConnection);
    if (exchange.isLast) {
        return MHD_HTTP_BAD_REQUEST;
    }
    if (nullptr == exchange.pRow) {
        return MHD_HTTP_NOT_FOUND;
    }
    if (0 != strcmp(szMethod, MHD_HTTP_METHOD_POST)) {
        return MHD_HTTP_METHOD_NOT_ALLOWED;
    }
    const auto account = accountOfBearer(header(pConnection, MHD_HTTP_HEADER_AUTHORIZATION));
    if (!account) {
        return MHD_HTTP_UNAUTHORIZED;
    }
    exchange.account = *account;
    if (declaredLength(pConnection) > kMaxBody) {
        return MHD_HTTP_CONTENT_TOO_LARGE;
    }
    const char* szEncoding = header(pConnection, MHD_HTTP_HEADER_CONTENT_ENCODING);
    return '\0' == *szEncoding || 0 == strcasecmp(szEncoding, "identity") ? 0 : MHD_HTTP_BAD_REQUEST;
}

// Takes in a piece of the body. Returns 0, or the HTTP status that says which limit it would break.
int appendBody(const char* pData, size_t size, Exchange& exchange)
{
    if (exchange.body.size() + size > kMaxBody) {
        return MHD_HTTP_CONTENT_TOO_LARGE;
    }
    exchange.body.append(pData, size);
    const bool isFull = (exchange.server.bodyBytes += size) > kMaxAllBodies;
    return isFull && exchange.body.size() > kSmallBody ? MHD_HTTP_SERVICE_UNAVAILABLE : 0;
}

Answer answer(Exchange& exchange)
{
    if (0 != exchange.refused) {
        return refusal(exchange.refused);
    }
    Json::Value jParams;
    try {
        jParams = parseParameters(exchange.body);
    } catch (const std::exception&) {
        return refusal(MHD_HTTP_BAD_REQUEST);
    }
    exchange.dropBody();
    return answerRequest(exchange.pRow->pHandler, exchange.account, std::move(jParams));
}

// The response owns the parts: what is sent is not copied once more.
MHD_Response* makeResponse(int status, std::vector<std::string> parts, bool isLast)
{
    auto pParts = std::make_unique<std::vector<std::string>>(std::move(parts));
    std::vector<MHD_IoVec> pieces;
    for (const std::string& part : *pParts) {
        pieces.push_back({part.data(), part.size()});
    }
    MHD_Response* pResponse = MHD_create_response_from_iovec(
        pieces.data(), static_cast<unsigned>(pieces.size()),
        [](void* pOwned) { delete static_cast<std::vector<std::string>*>(pOwned); }, pParts.get());
    if (nullptr == pResponse) {
        throw std::bad_alloc();
    }
    static_cast<void>(pParts.release());  // the response's now
    MHD_add_response_header(pResponse, MHD_HTTP_HEADER_CONTENT_TYPE, "application/json");
    if (MHD_HTTP_METHOD_NOT_ALLOWED == status) {
        MHD_add_response_header(pResponse, MHD_HTTP_HEADER_ALLOW, MHD_HTTP_METHOD_POST);
    }
    if (MHD_HTTP_UNAUTHORIZED == status) {
        MHD_add_response_header(pResponse, MHD_HTTP_HEADER_WWW_AUTHENTICATE, "Bearer");
    }
    if (isLast) {
        MHD_add_response_header(pResponse, MHD_HTTP_HEADER_CONNECTION, "close");
    }
    return pResponse;
}

MHD_Result respond(MHD_Connection* pConnection, Exchange& exchange)
{
    Answer outcome = answer(exchange);
    MHD_Response* pResponse =
        makeResponse(outcome.status, std::move(outcome.parts), exchange.isLast || exchange.server.isStopping);
    const MHD_Result queued = MHD_queue_response(pConnection, static_cast<unsigned>(outcome.status), pResponse);
    MHD_destroy_response(pResponse);
    exchange.isAnswered = true;
    logLine(exchange, std::to_string(outcome.code));
    return queued;
}

MHD_Result beginRequest(MHD_Connection* pConnection, const char* szUrl, const char* szMethod, Exchange& exchange)
{
    try {
        exchange.refused = judgeHead(pConnection, szUrl, szMethod, exchange);
    } catch (const std::exception& e) {
        std::cerr << "zemhost: a request could not be checked: " + printable(e.what()) + "\n";
        exchange.refused = MHD_HTTP_INTERNAL_SERVER_ERROR;
    }
    if (0 == exchange.refused) {
        exchange.server.waiting.remove(socketOf(pConnection));
        return MHD_YES;
    }
    return sendsBodyUnasked(pConnection) ? MHD_YES : respond(pConnection, exchange);
}

MHD_Result receiveBody(const char* pData, size_t size, Exchange& exchange)
{
    exchange.arrived += size;
    if (0 == exchange.refused) {
        exchange.refused = appendBody(pData, size, exchange);
    }
    if (0 != exchange.refused) {
        exchange.dropBody();
    }
    const bool isInTime = Clock::now() - exchange.start <= kMaxArrival;
    return isInTime && exchange.arrived <= kMaxDiscarded ? MHD_YES : MHD_NO;
}

// The library calls this with a request's head, then with each piece of its body, then at its end.
MHD_Result onRequest(void* pServer, MHD_Connection* pConnection, const char* szUrl, const char* szMethod, const char*,
                     const char* pData, size_t* pSize, void** ppExchange)
{
    try {
        if (nullptr == *ppExchange) {
            auto* pExchange = new Exchange(*static_cast<Server*>(pServer));
            *ppExchange = pExchange;
            return beginRequest(pConnection, szUrl, szMethod, *pExchange);
        }
        Exchange& exchange = *static_cast<Exchange*>(*ppExchange);
        if (0 < *pSize) {
            return receiveBody(pData, std::exchange(*pSize, 0), exchange);
        }
        return respond(pConnection, exchange);
    } catch (const std::exception& e) {
        std::cerr << "zemhost: a request was dropped: " + printable(e.what()) + "\n";
        return MHD_NO;
    }
}

// The library calls this when it has taken a connection, and before it closes the socket.
void onConnection(void* pServer, MHD_Connection* pConnection, void**, MHD_ConnectionNotificationCode code)
{
    Waiting& waiting = static_cast<Server*>(pServer)->waiting;
    if (MHD_CONNECTION_NOTIFY_STARTED == code) {
        waiting.add(socketOf(pConnection));
    } else {
        waiting.remove(socketOf(pConnection));
    }
}

void onCompleted(void* pServer, MHD_Connection* pConnection, void** ppExchange, MHD_RequestTerminationCode)
{
    static_cast<Server*>(pServer)->waiting.add(socketOf(pConnection));
    const std::unique_ptr<Exchange> exchange(static_cast<Exchange*>(std::exchange(*ppExchange, nullptr)));
    if (nullptr != exchange && !exchange->isAnswered) {
        logLine(*exchange, "cut");
    }
}

// Paths are compared as they were sent: an escaped one would be another spelling of the same method.
size_t keepEscapes(void*, MHD_Connection*, char* szText)
{
    return strlen(szText);
}

bool isLoopback(const sockaddr* pAddress)
{
    if (AF_INET6 == pAddress->sa_family) {
        return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6*>(pAddress)->sin6_addr);
    }
    return 127 == ntohl(reinterpret_cast<const sockaddr_in*>(pAddress)->sin_addr.s_addr) >> 24;
}

std::shared_ptr<addrinfo> parseAddress(const std::string& text)
{
    char szName[46], szPort[6];
    int end = 0;
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* pAddress = nullptr;
    const bool isWellFormed = 2 == sscanf(text.c_str(), "[%45[0-9a-fA-F:.]]:%5[0-9]%n", szName, szPort, &end) ||
                              2 == sscanf(text.c_str(), "%15[0-9.]:%5[0-9]%n", szName, szPort, &end);
    if (!isWellFormed || text.size() != static_cast<size_t>(end) || atoi(szPort) > 65535 ||
        0 != getaddrinfo(szName, szPort, &hints, &pAddress)) {
        throw std::runtime_error(text + " is no address to listen on: IPV4:PORT or [IPV6]:PORT");
    }
    return {pAddress, freeaddrinfo};
}

int listenOn(const std::string& text, bool allowRemote)
{
    const auto pAddress = parseAddress(text);
    if (!allowRemote && !isLoopback(pAddress->ai_addr)) {
        throw std::runtime_error(text + " can be reached from elsewhere: that needs --allow-remote");
    }
    const int on = 1;
    const int fd = socket(pAddress->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (0 > fd || 0 > setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) ||
        0 > bind(fd, pAddress->ai_addr, pAddress->ai_addrlen) || 0 > listen(fd, SOMAXCONN)) {
        throw std::runtime_error("cannot listen on " + text + ": " + strerror(errno));  // the program ends
    }
    return fd;
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

MHD_Daemon* startDaemon(Server& server, int listenFd, unsigned connections)
{
    MHD_Daemon* pDaemon =
        MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_ITC, 0, nullptr, nullptr, onRequest, &server,  //
                         MHD_OPTION_LISTEN_SOCKET, listenFd,                                                    //
                         MHD_OPTION_THREAD_POOL_SIZE, std::max(4u, std::thread::hardware_concurrency()),        //
                         MHD_OPTION_CONNECTION_LIMIT, connections,                                              //
                         MHD_OPTION_CONNECTION_MEMORY_LIMIT, kHeaderMemory,                                     //
                         MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds,                                           //
                         MHD_OPTION_STRICT_FOR_CLIENT, 1,                                                       //
                         MHD_OPTION_UNESCAPE_CALLBACK, keepEscapes, nullptr,                                    //
                         MHD_OPTION_NOTIFY_COMPLETED, onCompleted, &server,                                     //
                         MHD_OPTION_NOTIFY_CONNECTION, onConnection, &server,                                   //
                         MHD_OPTION_END);
    if (nullptr == pDaemon) {
        throw std::runtime_error(std::string("the HTTP server cannot be started: ") + strerror(errno));
    }
    return pDaemon;
}

unsigned portOf(MHD_Daemon* pDaemon)
{
    return MHD_get_daemon_info(pDaemon, MHD_DAEMON_INFO_BIND_PORT)->port;
}

// Stops taking connections, and waits for the requests that are running.
void stopDaemon(Server& server, MHD_Daemon* pDaemon)
{
    server.isStopping = true;
    const MHD_socket listenFd = MHD_quiesce_daemon(pDaemon);
    shutdown(listenFd, SHUT_RDWR);  // whoever comes now is turned away, not kept waiting
    const auto deadline = Clock::now() + kMaxDrain;
    while (0 < server.requests && Clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(10));
    }
    if (0 < server.requests) {
        std::cerr << "zemhost: stopped before every request was answered\n";
        _exit(0);  // the library would wait for a handler without end
    }
    MHD_stop_daemon(pDaemon);
    close(listenFd);
}

}  // namespace

void serve(const ModuleSet& modules, const std::string& address, bool allowRemote)
{
    signal(SIGPIPE, SIG_IGN);
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);  // also in the threads that start from here on

    const unsigned connections = reserveDescriptors();
    Server server{modules, Waiting(connections / 2)};
    MHD_Daemon* pDaemon = startDaemon(server, listenOn(address, allowRemote), connections);
    std::cout << "listening on http://" << address.substr(0, address.rfind(':')) << ':' << portOf(pDaemon) << std::endl;
    int received = 0;
    sigwait(&stopSignals, &received);
    stopDaemon(server, pDaemon);
}

}  // namespace host
