// Tests the log formats, the first steps of handlers, the method table, and the reading of JSON.
#include <cerrno>
#include <cmath>
#include <cstring>
#include <functional>

#include <gtest/gtest.h>
#include <unistd.h>

#include "frame/failure_log.h"
#include "frame/json_read.h"
#include "include/webapi_zem_ou.h"
#include "tests/fake_platform.h"

using namespace fake;
using namespace test;

namespace {

// Fills in the marks of an expected line: <O> is the source file, <U> the user, <P> the process, <M> the text of errno.
std::string fill(std::string text, int err)
{
    const std::pair<std::string, std::string> marks[] = {{"<S>", "<O>:7 <N>"},
                                                         {"<T>", "(<O>:7)<N>"},
                                                         {"<O>", "webapi_zem_ou.cpp"},
                                                         {"<N>", "(euid=<U>)(pid=<P>)"},
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

// Compares whole lines; other tests compare only their short forms.
TEST(FailureLog, writesEachLineByErrnoAndRepeatsItOnTheTerminal)
{
    const auto failed = [] { log_failed_call("0 > f()", szModuleSource, 7); };
    const auto bad = [] { log_bad_parameter(szModuleSource, 7); };
    const auto denied = [] { log_access_denied("0 > f()", szModuleSource, 7); };
    const auto noHash = [] { log_malloc_hash(szModuleSource, 7); };
    const std::tuple<std::function<void()>, int, std::string, std::string> cases[] = {
        {failed, EACCES, "<S>(<M>)(<O>:7)(<M>)!!Failed [0 > f()], err=<M>\n\n",
         "<T>(<O>:7)(<M>)!!Failed [0 > f()], err=<M>\n\n"},
        {failed, 0, "<S>(<O>:7)(<M>)Failed [0 > f()], err=<M>\n\n", "<T>(<O>:7)(<M>)Failed [0 > f()], err=<M>\n\n"},
        {failed, ENOENT, "<S>(<M>)(<O>:7)(<M>)Failed [0 > f()], err=<M>\n\n",
         "<T>(<O>:7)(<M>)Failed [0 > f()], err=<M>\n\n"},
        {[] { log_failed_call("0 > f()", szSourceLib, 8); }, 0,
         "webapi_zem_lib.cpp:8 <N>(webapi_zem_lib.cpp:8)(<M>)Failed [0 > f()], err=<M>\n\n",
         "(webapi_zem_lib.cpp:8)<N>(webapi_zem_lib.cpp:8)(<M>)Failed [0 > f()], err=<M>\n\n"},
        {bad, EACCES, "<S>(<M>)(<O>:7)(<M>)bad parameter\n\n", "<T>(<O>:7)(<M>)bad parameter\n\n"},
        {bad, 0, "<S>(<O>:7)(<M>)bad parameter\n\n", "<T>(<O>:7)(<M>)bad parameter\n\n"},
        {denied, EACCES, "<S>(<M>)!!Failed [0 > f()], err=<M>\n", "<T>!!Failed [0 > f()], err=<M>\n"},
        {denied, ENOENT, "", ""},
        {noHash, EACCES, "<S>(<M>)!!Fail EACESS, err=<M>\n<S>(<M>)(<O>:7)(<M>)malloc hash failed\n\n",
         "<T>!!Fail EACESS, err=<M>\n<T>(<O>:7)(<M>)malloc hash failed\n\n"},
        {noHash, 0, "<S>(<O>:7)(<M>)malloc hash failed\n\n", "<T>(<O>:7)(<M>)malloc hash failed\n\n"},
        {[] { log_no_permission("bob", -5, 0xD01, "store.cpp", 77, 7); }, ENOENT,
         "<O>:7 No permission for normal user [bob] on group [-5]. [0x0D01 store.cpp:77]", ""},
        {[] { log_root_delete(7); }, 0, "<O>:7 Deleting ROOT OU is not allowed.", ""},
        {[] { log_no_login_uid(7); }, EACCES, "<O>:7 Failed to get login uid", ""},
        {[] { log_invalid_argument("__null != req", 7); }, 0, "<O>:7 Invaild Argument (__null != req)=[0]\n", ""},
        {[] { log_notify_failed(UINT32_MAX, INT64_MIN, 7); }, 0,
         "<O>:7 fail to VELQZEMGpoNotifyFetch uid=4294967295 id=-9223372036854775808", ""},
    };
    for (const auto& [log, err, line, terminal] : cases) {
        for (const int echo : {0, 1}) {
            reset();
            giTerminalDebug = echo;
            errno = err;
            testing::internal::CaptureStdout();
            log();
            EXPECT_EQ(errno, err) << line;
            fflush(stdout);
            EXPECT_EQ(testing::internal::GetCapturedStdout(), echo ? fill(terminal, err) : "");
            EXPECT_EQ(platform.rawLogs, fill(line, err));
        }
    }
}

TEST(HandlerFrame, answersBeforeAnyWorkIsDone)
{
    for (const char* szMethod : {"KXGroup create", "KXGroup set", "KXGroup delete", "Tree get"}) {
        reset();
        VELQ::APIRequest request(UINT32_MAX, "", Json::Value());
        VELQ::APIResponse response;
        handlerOf(szMethod)(nullptr, &response);
        handlerOf(szMethod)(&request, nullptr);
        EXPECT_EQ(platform.calls, Lines());
        std::ostringstream expected;
        expected << "req=(nil) or resp=" << &response << " is NULL\nreq=" << &request << " or resp=(nil) is NULL\n";
        EXPECT_EQ(platform.logs[0] + "\n" + platform.logs[1] + "\n", expected.str());

        platform.logs.clear();
        handlerOf(szMethod)(&request, &response);
        Lines calls = {"GetLoginUID", "SetError 105"};
        if (handlerOf(szMethod) == list_tree_by_uid_v1) {
            calls.push_back("HashFree null");
        }
        EXPECT_EQ(platform.calls, calls);
        EXPECT_EQ(platform.logs, Lines{"Failed to get login uid"});
    }
}

// The tests of the handlers look them up in the table, which shows that each row has the right handler.
TEST(MethodTable, hasFourRowsAndEndsWithZeros)
{
    const VELQ::APIMethod* pRow = GetAPITable();
    for (; pRow->szApi != nullptr; ++pRow) {
        EXPECT_NE(pRow->pHandler, list_one_level_v1);
    }
    EXPECT_EQ(pRow - GetAPITable(), 4);
    const char zeros[sizeof(*pRow)] = {};
    EXPECT_EQ(memcmp(pRow, zeros, sizeof(zeros)), 0);
}

TEST(JsonRead, convertsNumbersLikeTheLibraryAndRefusesWhereItWouldThrow)
{
    const int64_t none = 4242;  // refused, the output stays unchanged
    const std::tuple<Json::Value, int64_t, int64_t> cases[] = {
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
    for (const auto& [jValue, asInt64, asInt] : cases) {
        int64_t wide = none;
        int narrow = none;
        EXPECT_EQ(read_int64(jValue, &wide), asInt64 == none ? -1 : 0) << jValue;
        EXPECT_EQ(wide, asInt64) << jValue;
        EXPECT_EQ(read_int(jValue, &narrow), asInt == none ? -1 : 0) << jValue;
        EXPECT_EQ(narrow, asInt) << jValue;
    }
}

TEST(JsonRead, parsesTextsOfAnyShapeWithoutThrowing)
{
    const auto nested = [](size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    const std::tuple<const char*, std::string, bool> cases[] = {
        {"brackets in a string do not count", "{\"a\":[1,\"]\\\"[\"]}", true},
        {"a number alone is accepted", " 7 ", true},
        {"errno stays although the parser sets it", "1e-400", true},
        {"an empty text is refused", "", false},
        {"text after the value is refused", "{\"a\":1}x", false},
        {"an incomplete text is refused", "{\"a\":", false},
        {"a comment is refused", "{/*[*/}", false},
        {"500 levels are accepted", nested(500), true},
        {"501 levels are refused", nested(501), false},
        {"100,000 levels are refused without an exception", std::string(100000, '['), false},
        {"a string of brackets is accepted", "\"" + std::string(5000, '[') + "\"", true},
        {"an escape at the end is refused", "\"\\", false},
        {"a bracket in a string does not balance one outside", "\"]\"" + nested(5000), false},
    };
    for (const auto& [szCase, text, isValid] : cases) {
        Json::Value jValue = "before";
        errno = EACCES;
        EXPECT_EQ(fromString(jValue, text), isValid ? 0 : -1) << szCase;
        EXPECT_EQ(jValue.isNull(), !isValid) << szCase;
        EXPECT_EQ(errno, EACCES) << szCase;
    }
}

}  // namespace
