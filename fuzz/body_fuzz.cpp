// Fuzz target: the body of an HTTP request to each method, with the real store. The first byte chooses method and
// account, the others are the body.
#include "host/calls/dispatch.h"
#include "tests/temp_store.h"

namespace {

const char* const szFleet =
    "{'accounts':[{'uid':1000,'name':'admin','admin':true},{'uid':2000,'name':'ann','admin':false}],"
    "'groups':[{'id':1,'parent_id':0,'name':'a','delegate':[{'ugid':2000,'user_type':2}]},"
    "{'id':2,'parent_id':1,'name':'b'},{'id':3,'parent_id':0,'name':'c'}],"
    "'policies':[{'id':1,'name':'p','desc':'','parent_id':0,'setting':{'version':1}}],"
    "'servers':[{'id':1,'parent_id':2,'name':'s','address':''}]}";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size)
{
    static std::unique_ptr<test::TempStore> pStore;
    static uint64_t runs = 0;
    if (size < 1) {
        return 0;
    }
    if (runs++ % 1000 == 0) {  // start again, so that a failure depends on few earlier inputs
        pStore = nullptr;
        pStore = std::make_unique<test::TempStore>(test::json(szFleet));
    }
    Json::Value jParams;
    try {
        jParams = host::parseParameters(std::string(reinterpret_cast<const char*>(pData) + 1, size - 1));
    } catch (const std::runtime_error&) {
        return 0;
    }
    const store::Account account = pData[0] & 4 ? store::Account{2000, "ann"} : store::Account{1000, "admin"};
    if (host::answerRequest(gTable[pData[0] % 4], account, jParams).status == 500) {
        abort();  // the handler threw an exception
    }
    // After any request, the tree can still be fetched and written.
    VELQ::APIResponse resp;
    host::callHandler(list_tree_by_uid_v1, {1000, "admin"}, Json::Value(), resp);
    if (!resp.IsSuccess() || host::envelope(resp).empty()) {
        abort();
    }
    return 0;
}
