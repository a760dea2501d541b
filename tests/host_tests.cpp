// The host as a process of its own: the built module, a store in a temporary folder, requests by libcurl.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <set>
#include <sstream>

#include <curl/curl.h>
#include <gtest/gtest.h>
#include <json/json.h>

namespace {

using Strings = std::vector<std::string>;
constexpr char kSample[] = SOURCE_DIR "/fleets/sample.json";
constexpr char kModule[] = BUILD_DIR "/webapi_zem_ou.so";
constexpr char kTreePath[] = "/webapi/VELQ.ZEM.Tree/1/get";
constexpr char kCreatePath[] = "/webapi/VELQ.ZEM.KXGroup/1/create";

std::string readAll(const std::filesystem::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

struct Reply {
    long status = 0;
    Json::Value jBody;
};

// Each test has a folder with a store of its own, and stops the server that it started.
class HostTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::string path = testing::TempDir() + "zemhost-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(path.data()));
        folder = path;
    }
    void TearDown() override
    {
        stop();
        std::filesystem::remove_all(folder);
    }

    // zemhost on the test's store, ended after two minutes at the latest. arguments: shell text.
    std::string command(const std::string& arguments) const
    {
        return "cd " + folder.string() + " && exec timeout 120 " BUILD_DIR "/zemhost " + arguments;
    }
    // Runs a command that is to exit with that status; standard output and error together.
    std::string run(int status, const std::string& arguments) const
    {
        const int waited = system((command(arguments) + " >output 2>&1").c_str());
        EXPECT_EQ(status, WIFEXITED(waited) ? WEXITSTATUS(waited) : -1) << arguments;
        return readAll(folder / "output");
    }
    void write(const std::string& name, const std::string& text) const
    {
        std::ofstream(folder / name) << text;
    }
    void load() const
    {
        run(0, std::string("load ") + kSample);
    }
    std::string tokenOf(const std::string& account) const
    {
        return run(0, "token " + account).substr(0, 64);
    }

    void serve(const std::string& arguments = "")
    {
        char szBase[64] = "";
        const std::string serving = command("serve --listen 127.0.0.1:0 " + arguments + " 2>log");
        m_pServer = popen(("echo $$; " + serving).c_str(), "re");
        EXPECT_EQ(2, fscanf(m_pServer, "%d listening on %63s", &m_serverPid, szBase)) << readAll(folder / "log");
        m_base = szBase;
    }
    // The server's exit status.
    int stop()
    {
        if (nullptr == m_pServer) {
            return -1;
        }
        kill(m_serverPid, SIGTERM);
        const int waited = pclose(std::exchange(m_pServer, nullptr));
        return WIFEXITED(waited) ? WEXITSTATUS(waited) : -1;
    }

    // Compiles test.so, a module with one method, "Test" 1 "run". handler: a C++ expression.
    void buildModule(const std::string& handler) const
    {
        write("test.cpp", R"(#include <unistd.h>
            struct Row { const char* api; long version; const char* method; void (*handler)(void*, void*); };
            static Row rows[] = {{"Test", 1, "run", )" +
                              handler + R"(}, {0, 0, 0, 0}};
            extern "C" Row* GetAPITable() { return rows; })");
        ASSERT_EQ(0, system(("cd " + folder.string() + " && c++ -shared -fPIC -o test.so test.cpp").c_str()));
    }

    Reply request(const std::string& path, const std::string& token, const std::string& body = "",
                  const char* szMethod = "POST", const Strings& headers = {}) const
    {
        const std::unique_ptr<CURL, void (*)(CURL*)> curl(curl_easy_init(), curl_easy_cleanup);
        curl_slist* pHeaders = curl_slist_append(nullptr, ("Authorization: Bearer " + token).c_str());
        for (const std::string& header : headers) {
            pHeaders = curl_slist_append(pHeaders, header.c_str());
        }
        std::string text;
        const auto append = +[](char* pData, size_t, size_t count, std::string* pText) {
            pText->append(pData, count);
            return count;
        };
        Reply reply;
        curl_easy_setopt(curl.get(), CURLOPT_URL, (m_base + path).c_str());
        curl_easy_setopt(curl.get(), CURLOPT_CUSTOMREQUEST, szMethod);
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body.data());
        curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, pHeaders);
        curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, append);
        curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &text);
        curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, 60L);
        EXPECT_EQ(CURLE_OK, curl_easy_perform(curl.get())) << path;
        curl_slist_free_all(pHeaders);
        curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &reply.status);
        std::istringstream(text) >> reply.jBody;
        return reply;
    }

    std::filesystem::path folder;

private:
    FILE* m_pServer = nullptr;
    pid_t m_serverPid = -1;
    std::string m_base;
};

// Calls visit with every node and the identifier of the group above it, 0 at the top.
void forEachNode(const Json::Value& jNodes, const std::function<void(const Json::Value&, int64_t)>& visit,
                 int64_t parentId = 0)
{
    for (const Json::Value& jNode : jNodes) {
        visit(jNode, parentId);
        forEachNode(jNode["children"], visit, jNode["node_id"].asInt64());
    }
}

TEST_F(HostTest, AdministratorSeesEveryNodeOnceUnderItsParent)
{
    load();
    serve();
    const Reply reply = request(kTreePath, tokenOf("admin"));
    ASSERT_EQ(200, reply.status);
    ASSERT_TRUE(reply.jBody["success"].asBool());
    Json::Value jFleet;
    std::ifstream(kSample) >> jFleet;
    std::set<std::pair<std::string, int64_t>> expected, seen;
    for (const char* szPart : {"groups", "servers", "policies"}) {
        for (const Json::Value& jRecord : jFleet[szPart]) {
            expected.emplace(jRecord["name"].asString(), jRecord["parent_id"].asInt64());
        }
    }
    forEachNode(reply.jBody["data"], [&](const Json::Value& jNode, int64_t parentId) {
        EXPECT_TRUE(seen.emplace(jNode["name"].asString(), parentId).second) << jNode["name"];
        for (const char* szInner : {"id", "find_parent", "sid"}) {
            EXPECT_FALSE(jNode.isMember(szInner)) << szInner << " in " << jNode["name"];
        }
    });
    EXPECT_EQ(expected, seen);
}

TEST_F(HostTest, DelegateSeesAndChangesOnlyItsGroups)
{
    load();
    serve();
    const std::string token = tokenOf("m.okafor");
    EXPECT_EQ(414,
              request(kCreatePath, token, R"({"id":0,"parent_id":6,"name":"Lab"})").jBody["error"]["code"].asInt());
    EXPECT_TRUE(request(kCreatePath, token, R"({"id":0,"parent_id":3,"name":"Lab"})").jBody["success"].asBool());
    std::set<std::string> groups;
    forEachNode(request(kTreePath, token).jBody["data"], [&](const Json::Value& jNode, int64_t) {
        if (2 == jNode["node_type"].asInt()) {
            groups.insert(jNode["name"].asString());
        }
    });
    EXPECT_EQ((std::set<std::string>{"Web", "Web staging", "Warehouses", "Lab"}), groups);
}

TEST_F(HostTest, BadRequestsAreRefusedAndTheNextIsServed)
{
    load();
    buildModule("[](void*, void*) { throw 1; }");
    serve(std::string("--module test.so --module ") + kModule);
    const std::string token = tokenOf("admin");
    const std::string nested = "{\"a\":" + std::string(100000, '[') + std::string(100000, ']') + "}";
    const std::string huge(100 << 20, ' ');
    const struct {
        const char* szWhat;
        long status;
        std::string path, token, body;
        const char* szMethod = "POST";
        Strings headers = {};
    } kCases[] = {
        {"no token", 401, kTreePath, "", ""},
        {"unknown token", 401, kTreePath, std::string(64, '0'), ""},
        {"unknown token, huge body", 401, kTreePath, "x", huge, "POST", {"Expect:"}},
        {"huge body, announced", 413, kCreatePath, token, huge, "POST", {"Expect: 100-continue"}},
        {"huge body, sent at once", 413, kCreatePath, token, huge, "POST", {"Expect:"}},
        {"huge body of unknown length", 413, kCreatePath, token, huge, "POST", {"Transfer-Encoding: chunked"}},
        {"cut JSON", 400, kCreatePath, token, R"({"name":)"},
        {"two values", 400, kCreatePath, token, "{}{}"},
        {"no object", 400, kCreatePath, token, "[]"},
        {"repeated name", 400, kCreatePath, token, R"({"name":"a","name":"b"})"},
        {"not UTF-8", 400, kCreatePath, token, "{\"name\":\"\xC0\xAF\"}"},
        {"nested too deep", 400, kCreatePath, token, nested},
        {"compressed", 400, kCreatePath, token, "{}", "POST", {"Content-Encoding: gzip"}},
        {"GET", 405, kTreePath, token, "", "GET"},
        {"GET of an unknown method, no token", 404, "/webapi/VELQ.ZEM.Tree/1/drop", "", "", "GET"},
        {"unknown version", 404, "/webapi/VELQ.ZEM.Tree/2/get", token, ""},
        {"signed version", 404, "/webapi/VELQ.ZEM.Tree/+1/get", token, ""},
        {"zero before the version", 404, "/webapi/VELQ.ZEM.Tree/01/get", token, ""},
        {"version out of range", 404, "/webapi/VELQ.ZEM.Tree/18446744073709551617/get", token, ""},
        {"escaped path", 404, "/webapi/VELQ.ZEM.Tree/1/%67et", token, ""},
        {"long path", 404, "/webapi/" + std::string(10000, 'x') + "/1/get", token, ""},
        {"an exception", 500, "/webapi/Test/1/run", token, ""},
    };
    for (const auto& bad : kCases) {
        const Reply reply = request(bad.path, bad.token, bad.body, bad.szMethod, bad.headers);
        EXPECT_EQ(bad.status, reply.status) << bad.szWhat;
        EXPECT_EQ(bad.status, reply.jBody["error"]["code"].asInt()) << bad.szWhat;
        EXPECT_TRUE(request(kTreePath, token).jBody["success"].asBool()) << "after " << bad.szWhat;
    }
    EXPECT_EQ(0, stop());
    const std::string log = readAll(folder / "log");
    EXPECT_NE(std::string::npos, log.find(" admin VELQ.ZEM.Tree get 0 ")) << log;
    EXPECT_EQ(std::string::npos, log.find(token)) << log;
}

TEST_F(HostTest, BrokenFleetsSayWhereAndChangeNothing)
{
    const std::string sample = readAll(kSample);
    const auto replaced = [&](const std::string& from, const std::string& to) {
        return std::string(sample).replace(sample.find(from), from.size(), to);
    };
    const std::pair<std::string, const char*> kCases[] = {
        {replaced(R"("id": 12, "parent_id": 0)", R"("id": 11, "parent_id": 0)"), "groups[11]"},
        {replaced(R"("id": 12, "parent_id": 0)", R"("id": 12, "parent_id": 99)"), "groups[11]"},
        {replaced(R"("id": 6, "parent_id": 0)", R"("id": 6, "parent_id": 10)"), "groups["},
        {replaced(R"("parent_id": 12, "name")", R"("parent_id": "12", "name")"), "servers[29]"},
        {replaced(R"("ugid": 1001)", R"("ugid": 77)"), "groups[2]"},
        {sample.substr(0, sample.size() / 2), "Line "},
        {std::string(5000, '[') + std::string(5000, ']'), "too deep"},
        {"", "empty"},
    };
    for (const auto& [text, szPlace] : kCases) {
        write("broken.json", text);
        const std::string output = run(1, "load broken.json");
        EXPECT_NE(std::string::npos, output.find(szPlace)) << output;
    }
    load();
    const std::string tree = run(0, "tree --as admin");
    EXPECT_NE(std::string::npos, tree.find("\n12 groups, 30 servers, 8 policies, 22 links, 5 delegates\n"));
    run(1, std::string("load ") + kSample);  // the store holds a fleet now
    EXPECT_EQ(tree, run(0, "tree --as admin"));
}

TEST_F(HostTest, TerminationFinishesWhatIsRunning)
{
    load();
    buildModule("[](void*, void*) { sleep(2); }");
    serve("--module test.so");
    auto reply = std::async(std::launch::async,
                            [this, token = tokenOf("admin")] { return request("/webapi/Test/1/run", token); });
    sleep(1);
    EXPECT_EQ(0, stop());
    EXPECT_EQ(200, reply.get().status);
}

TEST_F(HostTest, CommandsShowWhatTheyChanged)
{
    load();
    run(0, "link add group 12 8");
    EXPECT_NE(std::string::npos, run(0, "tree --as admin").find("group Retired  policies: Early updates\n"));
    run(0, "link remove group 12 8");
    EXPECT_NE(std::string::npos, run(0, "tree --as admin").find("group Retired\n"));
    const std::string page = run(0, "list --as admin --sort-by name --offset 1 --limit 2");
    EXPECT_LT(page.find("\"Plants\""), page.find("\"Retired\"")) << page;
    EXPECT_EQ(std::string::npos, page.find("\"Headquarters\"")) << page;
}

TEST_F(HostTest, CommandsThatCannotWorkSayWhy)
{
    load();
    write("text.so", "no module");
    buildModule("nullptr");
    const std::string module = kModule, tree = "tree --as admin --module ", call = "call --as admin ";
    const std::pair<std::string, const char*> kCases[] = {
        {"tree --as nobody", "no account \"nobody\""},
        {call + "VELQ.ZEM.Tree drop", "no module offers"},
        {call + "VELQ.ZEM.Tree get --params []", "not a JSON object"},
        {call + "VELQ.ZEM.KXGroup delete --params '{\"node_id\":0}'", "\"code\":101"},
        {"link add group 12 99", "not changed"},
        {"link add policy 12 1", "policy"},
        {"load .", "directory"},
        {"serve --listen 0.0.0.0:0", "--allow-remote"},
        {"serve --listen localhost", "no address"},
        {tree + "none.so", "none.so"},
        {tree + "text.so", "text.so"},
        {tree + BUILD_DIR "/libvelqplatform.so", "GetAPITable"},
        {tree + module + " --module " + module, "duplicate"},
        {tree + "test.so", "row 1"},
    };
    for (const auto& [arguments, szReason] : kCases) {
        const std::string output = run(1, arguments);
        EXPECT_NE(std::string::npos, output.find(szReason)) << output;
    }
}

}  // namespace
