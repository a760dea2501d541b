// Measures tree requests over the node store on SQLite.
//
// The handler's time is also given as a ratio to one deep copy of its answer, and its peak memory as a ratio to the
// size of the answer; the time over HTTP as a ratio to copying and serialising the answer. Both sides of a ratio are
// measured alternately in the same run.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <malloc.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <json/writer.h>
#include <sqlite3.h>

#include "bench/shapes.h"
#include "include/webapi_zem_ou.h"
#include "store/store.h"

namespace {

using namespace bench;

constexpr uint32_t kAdmin = 1000;

[[noreturn]] void fail(const std::string& text)
{
    fprintf(stderr, "request_bench: %s\n", text.c_str());
    exit(1);
}

// Makes the content of a fleet file with that many groups, all at the top level, and one server in each.
Json::Value makeFleet(int64_t groups)
{
    Json::Value jFleet;
    Json::Value& jAdmin = jFleet["accounts"].append(Json::Value());
    jAdmin["uid"] = kAdmin;
    jAdmin["name"] = "admin";
    jAdmin["admin"] = true;
    for (int64_t id = 1; id <= kPolicies; ++id) {
        Json::Value& jGpo = jFleet["policies"].append(Json::Value());
        jGpo["id"] = Json::Value(id);
        jGpo["parent_id"] = 0;
        jGpo["name"] = "policy " + std::to_string(id);
        jGpo["desc"] = "what the policy does";
        jGpo["setting"]["version"] = 1;
    }
    for (int64_t id = 1; id <= groups; ++id) {
        Json::Value& jOu = jFleet["groups"].append(Json::Value());
        jOu["id"] = Json::Value(id);
        jOu["parent_id"] = 0;
        jOu["name"] = "group " + std::to_string(id);
        jOu["desc"] = "";
        for (int64_t link = 0; link < kLinksPerGroup; ++link) {
            jOu["linked_gpo"]["order"].append(Json::Value())["id"] = Json::Value(linkedPolicy(id, link));
        }
        Json::Value& jKx = jFleet["servers"].append(Json::Value());
        jKx["id"] = Json::Value(id);
        jKx["parent_id"] = Json::Value(id);
        jKx["name"] = "server " + std::to_string(id);
        jKx["address"] = "10.0.0.1";
    }
    return jFleet;
}

// Sets the parents of the stored groups directly in the database: the store would refuse a chain of a thousand.
void reshape(const std::string& path, const Parents& parents)
{
    sqlite3* pDb = nullptr;
    sqlite3_stmt* pUpdate = nullptr;
    if (sqlite3_open(path.c_str(), &pDb) != SQLITE_OK ||
        sqlite3_exec(pDb, "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(pDb, "UPDATE ou SET parent_id = ? WHERE id = ?", -1, &pUpdate, nullptr) != SQLITE_OK) {
        fail(sqlite3_errmsg(pDb));
    }
    for (size_t i = 0; i < parents.size(); ++i) {
        sqlite3_bind_int64(pUpdate, 1, parents[i]);
        sqlite3_bind_int64(pUpdate, 2, static_cast<int64_t>(i + 1));
        sqlite3_step(pUpdate);
        sqlite3_reset(pUpdate);
    }
    sqlite3_finalize(pUpdate);
    if (sqlite3_exec(pDb, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail(sqlite3_errmsg(pDb));
    }
    sqlite3_close(pDb);
}

// A database with a fleet of that shape, which the destructor removes.
class Database {
public:
    Database(const Shape& shape, int64_t groups)
        : m_folder(std::filesystem::temp_directory_path() / ("request_bench." + std::to_string(getpid())))
    {
        std::filesystem::create_directories(m_folder);
        VELQZEMStoreOpen(url());
        store::applyFleet(makeFleet(groups), {});
        reshape(m_folder / "fleet.db", shape.make(groups));
    }
    ~Database()
    {
        VELQZEMStoreClose();
        std::filesystem::remove_all(m_folder);
    }
    std::string url() const
    {
        return "sqlite:" + (m_folder / "fleet.db").string();
    }

private:
    std::filesystem::path m_folder;
};

// Returns the process's peak memory in bytes since the last call with reset true.
size_t peakBytes(bool reset)
{
    if (reset) {
        std::ofstream("/proc/self/clear_refs") << "5";
    }
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) {
            return std::stoul(line.substr(6)) * 1024;
        }
    }
    return 0;
}

VELQ::APIResponse fetchTree()
{
    VELQ::APIRequest request(kAdmin, "admin", Json::Value());
    VELQ::APIResponse response;
    list_tree_by_uid_v1(&request, &response);
    if (!response.IsSuccess()) {
        fail("the tree was refused");
    }
    return response;
}

void measureHandler(benchmark::State& state, const Shape& shape)
{
    const Database database(shape, state.range(0));
    fetchTree();  // load the pages of the database before the measurement

    malloc_trim(0);
    const size_t before = peakBytes(true);
    VELQ::APIResponse answer = fetchTree();
    const size_t peak = peakBytes(false) - before;
    const size_t bytesBefore = mallinfo2().uordblks + mallinfo2().hblkhd;
    const Json::Value jAnswer = answer.GetData();
    const size_t answerBytes = mallinfo2().uordblks + mallinfo2().hblkhd - bytesBefore;

    double copySeconds = 0;
    double fetchSeconds = 0;
    for (auto _ : state) {
        Json::Value jCopy;
        copySeconds += seconds([&] { jCopy = jAnswer; });
        VELQ::APIResponse response;
        const double fetch = seconds([&] { response = fetchTree(); });
        fetchSeconds += fetch;
        state.SetIterationTime(fetch);
    }
    state.counters["to_one_copy"] = fetchSeconds / copySeconds;
    state.counters["peak_to_answer"] = static_cast<double>(peak) / static_cast<double>(answerBytes);
}

// A zemhost process on a free port, which the destructor stops.
class Host {
public:
    explicit Host(const std::string& url)
    {
        int out[2];
        if (pipe(out) != 0) {
            fail("no pipe");
        }
        m_pid = fork();
        if (m_pid == 0) {
            dup2(out[1], STDOUT_FILENO);
            if (freopen("/dev/null", "w", stderr) == nullptr) {
                _exit(127);
            }
            execl(ZEMHOST, ZEMHOST, "serve", "--keep-answers", "0", "--listen", "127.0.0.1:0", "--store", url.c_str(),
                  nullptr);
            _exit(127);
        }
        close(out[1]);
        FILE* pOut = fdopen(out[0], "r");
        char szLine[200] = "";
        if (!fgets(szLine, sizeof(szLine), pOut)) {
            fail("zemhost does not start");
        }
        fclose(pOut);
        const std::string line = szLine;
        m_base = line.substr(line.find("http://"), line.find_last_not_of(" \n") + 1 - line.find("http://"));
    }
    ~Host()
    {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
    }
    const std::string& base() const
    {
        return m_base;
    }

private:
    pid_t m_pid;
    std::string m_base;
};

std::string makeToken(const std::string& url)
{
    FILE* pOut = popen((std::string(ZEMHOST) + " token admin --store " + url).c_str(), "r");
    char szToken[200] = "";
    if (!pOut || !fgets(szToken, sizeof(szToken), pOut)) {
        fail("no token");
    }
    pclose(pOut);
    return std::string(szToken, strcspn(szToken, "\n"));
}

size_t countBytes(char*, size_t size, size_t count, void* pTotal)
{
    *static_cast<size_t*>(pTotal) += size * count;
    return size * count;
}

void measureHttp(benchmark::State& state, const Shape& shape)
{
    const Database database(shape, state.range(0));
    const Host host(database.url());
    const Json::Value jAnswer = fetchTree().GetData();
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    size_t received = 0;
    CURL* pCurl = curl_easy_init();
    curl_slist* pHeaders = curl_slist_append(nullptr, ("Authorization: Bearer " + makeToken(database.url())).c_str());
    curl_easy_setopt(pCurl, CURLOPT_URL, (host.base() + "/webapi/VELQ.ZEM.Tree/1/get").c_str());
    curl_easy_setopt(pCurl, CURLOPT_HTTPHEADER, pHeaders);
    curl_easy_setopt(pCurl, CURLOPT_POSTFIELDS, "");
    curl_easy_setopt(pCurl, CURLOPT_TIMEOUT, 120L);
    curl_easy_setopt(pCurl, CURLOPT_WRITEFUNCTION, countBytes);
    curl_easy_setopt(pCurl, CURLOPT_WRITEDATA, &received);
    double writeSeconds = 0;
    double requestSeconds = 0;
    for (auto _ : state) {
        Json::Value jCopy;
        std::string text;
        writeSeconds += seconds([&] {
            jCopy = jAnswer;
            text = Json::writeString(writer, jCopy);
        });
        received = 0;
        const double request = seconds([&] { curl_easy_perform(pCurl); });
        if (received <= text.size()) {
            fail("the answer over HTTP is too short");
        }
        requestSeconds += request;
        state.SetIterationTime(request);
    }
    curl_slist_free_all(pHeaders);
    curl_easy_cleanup(pCurl);
    state.counters["to_copy_and_write"] = requestSeconds / writeSeconds;
}

}  // namespace

int main(int argc, char** argv)
{
    return runForEachShape(argc, argv, {{"handler", measureHandler}, {"http", measureHttp}});
}
