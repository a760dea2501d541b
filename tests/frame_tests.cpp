// The failure log's formats, the handler frame, the method table, and the checked reads of JSON.
#include <cerrno>
#include <cmath>
#include <cstring>
#include <numeric>

#include <unistd.h>

#include "frame/failure_log.h"
#include "frame/json_read.h"
#include "include/webapi_zem_ou.h"
#include "tests/fake_platform.h"

using namespace fake;

namespace {

// Puts the process numbers and the text of errno into a format, in the order euid, pid, then as often as it says.
std::string fill(std::string text, int err)
{
    const std::pair<std::string, std::string> marks[] = {{"<S>", "3 webapi_zem_ou.cpp:L (euid=<U>)(pid=<P>)"},
                                                         {"<T>", "<7>(euid=<U>)(pid=<P>)"},
                                                         {"<L>", "(webapi_zem_ou.cpp:L)"},
                                                         {"<7>", "(webapi_zem_ou.cpp:7)"},
                                                         {"<U>", std::to_string(geteuid())},
                                                         {"<P>", std::to_string(getpid())},
                                                         {"<M>", strerror(err)}};
    for (const auto& [mark, value] : marks) {
        for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at)) {
            text.replace(at, mark.size(), value);
        }
    }
    return text;
}

TEST(FailureLog, wordsEachFamilyByErrnoAndEchoesItWhenTheTerminalIsOn)
{
    const char* const szOu = "webapi_zem_ou.cpp";
    const auto failed = [=] { log_failed_call("0 > f()", szOu, 7); };
    const auto bad = [=] { log_bad_parameter(szOu, 7); };
    const auto denied = [=] { log_access_denied("0 > f()", szOu, 7); };
    const auto noHash = [=] { log_malloc_hash(szOu, 7); };
    const auto failedLib = [] { log_failed_call("0 > f()", "webapi_zem_lib.cpp", 7); };
    const struct {
        std::function<void()> log;
        int err;
        std::string lines, terminal;
    } cases[] = {
        {failed, EACCES, "<S>(<M>)<L>(<M>)!!Failed [0 > f()], err=<M>\n\n",
         "<T><7>(<M>)!!Failed [0 > f()], err=<M>\n\n"},
        {failed, 0, "<S><L>(<M>)Failed [0 > f()], err=<M>\n\n", "<T><7>(<M>)Failed [0 > f()], err=<M>\n\n"},
        {failed, ENOENT, "<S>(<M>)<L>(<M>)Failed [0 > f()], err=<M>\n\n", "<T><7>(<M>)Failed [0 > f()], err=<M>\n\n"},
        {failedLib, 0,
         "3 webapi_zem_lib.cpp:L (euid=<U>)(pid=<P>)(webapi_zem_lib.cpp:L)(<M>)Failed [0 > f()], err=<M>\n\n",
         "(webapi_zem_lib.cpp:7)(euid=<U>)(pid=<P>)(webapi_zem_lib.cpp:7)(<M>)Failed [0 > f()], err=<M>\n\n"},
        {bad, EACCES, "<S>(<M>)<L>(<M>)bad parameter\n\n", "<T><7>(<M>)bad parameter\n\n"},
        {bad, 0, "<S><L>(<M>)bad parameter\n\n", "<T><7>(<M>)bad parameter\n\n"},
        {denied, EACCES, "<S>(<M>)!!Failed [0 > f()], err=<M>\n", "<T>!!Failed [0 > f()], err=<M>\n"},
        {denied, ENOENT, "", ""},
        {noHash, EACCES, "<S>(<M>)!!Fail EACESS, err=<M>\n<S>(<M>)<L>(<M>)malloc hash failed\n\n",
         "<T>!!Fail EACESS, err=<M>\n<T><7>(<M>)malloc hash failed\n\n"},
        {noHash, 0, "<S><L>(<M>)malloc hash failed\n\n", "<T><7>(<M>)malloc hash failed\n\n"},
        {[] { log_no_permission("bob", -5, 0xD01, "store.cpp", 77); }, ENOENT,
         "3 webapi_zem_ou.cpp:L No permission for normal user [bob] on group [-5]. [0x0D01 store.cpp:77]", ""},
        {[] { log_root_delete(); }, 0, "3 webapi_zem_ou.cpp:L Deleting ROOT OU is not allowed.", ""},
        {[] { log_notify_failed(UINT32_MAX, INT64_MIN); }, 0,
         "3 webapi_zem_ou.cpp:L fail to VELQZEMGpoNotifyFetch uid=4294967295 id=-9223372036854775808", ""},
    };
    for (const auto& c : cases) {
        for (const int echo : {0, 1}) {
            reset();
            giTerminalDebug = echo;
            errno = c.err;
            testing::internal::CaptureStdout();
            c.log();
            fflush(stdout);
            EXPECT_EQ(testing::internal::GetCapturedStdout(), echo ? fill(c.terminal, c.err) : "");
            EXPECT_EQ(std::accumulate(platform.logs.begin(), platform.logs.end(), std::string()), fill(c.lines, c.err));
        }
    }
}

TEST(FailureLog, leavesErrnoAsItWas)
{
    reset();
    errno = EACCES;
    log_malloc_hash();
    log_no_login_uid();
    log_access_denied("x");
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(platform.logs.size(), 4u);
}

TEST(HandlerFrame, answersBeforeAnyWorkIsDone)
{
    for (const Handler handler : {create_v1, set_v1, delete_v1, list_tree_by_uid_v1}) {
        reset();
        VELQ::APIRequest request(UINT32_MAX, "", Json::Value());
        VELQ::APIResponse response;
        handler(nullptr, &response);
        handler(&request, nullptr);
        EXPECT_EQ(platform.calls, Lines());
        ASSERT_EQ(platform.logs.size(), 2u);
        char szExpected[200];
        snprintf(szExpected, sizeof(szExpected), "3 webapi_zem_ou.cpp:L req=%p or resp=%p is NULL",
                 static_cast<void*>(nullptr), static_cast<void*>(&response));
        EXPECT_EQ(platform.logs[0], szExpected);

        platform.logs.clear();
        handler(&request, &response);
        Lines calls = {"GetLoginUID", "SetError 105"};
        if (handler == list_tree_by_uid_v1) {
            calls.push_back("HashFree null");
        }
        EXPECT_EQ(platform.calls, calls);
        EXPECT_EQ(platform.logs, Lines{"3 webapi_zem_ou.cpp:L Failed to get login uid"});
    }
}

TEST(MethodTable, hasFourRowsAndATerminator)
{
    const struct {
        const char* szApi;
        const char* szMethod;
        Handler handler;
    } rows[] = {{"VELQ.ZEM.KXGroup", "create", create_v1},
                {"VELQ.ZEM.KXGroup", "set", set_v1},
                {"VELQ.ZEM.KXGroup", "delete", delete_v1},
                {"VELQ.ZEM.Tree", "get", list_tree_by_uid_v1}};
    const VELQ::APIMethod* row = GetAPITable();
    for (const auto& expected : rows) {
        EXPECT_STREQ(row->szApi, expected.szApi);
        EXPECT_STREQ(row->szMethod, expected.szMethod);
        EXPECT_EQ(row->version, 1);
        EXPECT_EQ(row->pHandler, expected.handler);
        ++row;
    }
    const char zeros[32] = {};
    EXPECT_EQ(memcmp(row, zeros, sizeof(zeros)), 0);
}

TEST(JsonRead, convertsWhatTheLibraryConvertsAndRefusesWhatItWouldThrowAt)
{
    const int64_t none = 4242;  // the value stays
    const struct {
        Json::Value value;
        int64_t asInt64, asInt;
    } cases[] = {
        {Json::Value(), 0, 0},
        {true, 1, 1},
        {-7, -7, -7},
        {Json::Value(INT64_MIN), INT64_MIN, none},
        {Json::Value(INT64_MAX), INT64_MAX, none},
        {Json::Value(uint64_t(INT64_MAX)), INT64_MAX, none},
        {Json::Value(uint64_t(INT64_MAX) + 1), none, none},
        {Json::Value(7u), 7, 7},
        {-2.9, -2, -2},
        {2147483647.0, 2147483647, 2147483647},
        {2147483648.0, 2147483648, none},
        {9223372036854774784.0, 9223372036854774784, none},
        {0x1p63, none, none},
        {-0x1p63, INT64_MIN, none},
        {std::nan(""), none, none},
        {HUGE_VAL, none, none},
        {"7", none, none},
        {Json::Value(Json::arrayValue), none, none},
        {Json::Value(Json::objectValue), none, none},
    };
    for (const auto& c : cases) {
        int64_t wide = none;
        int narrow = none;
        EXPECT_EQ(read_int64(c.value, &wide), c.asInt64 == none ? -1 : 0) << c.value;
        EXPECT_EQ(wide, c.asInt64) << c.value;
        EXPECT_EQ(read_int(c.value, &narrow), c.asInt == none ? -1 : 0) << c.value;
        EXPECT_EQ(narrow, c.asInt) << c.value;
    }
}

TEST(JsonRead, parsesTextsOfAnyShapeWithoutThrowing)
{
    const auto nested = [](size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    const struct {
        std::string text;
        bool isValid;
    } cases[] = {{"{\"a\":[1,\"]\\\"[\"]}", true},
                 {" 7 ", true},
                 {"1e-400", true},
                 {"", false},
                 {"{\"a\":1}x", false},
                 {"{\"a\":", false},
                 {"{/*[*/}", false},
                 {nested(500), true},
                 {nested(501), false},
                 {std::string(100000, '['), false},
                 {"\"" + std::string(5000, '[') + "\"", true},
                 {"\"\\", false},
                 {"\"]\"" + nested(5000), false}};
    for (const auto& c : cases) {
        Json::Value value = "before";
        errno = EACCES;
        EXPECT_EQ(fromString(value, c.text), c.isValid ? 0 : -1) << c.text.substr(0, 40);
        EXPECT_EQ(value.isNull(), !c.isValid) << c.text.substr(0, 40);
        EXPECT_EQ(errno, EACCES);
    }
}

}  // namespace
