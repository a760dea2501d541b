#include "tests/fake_platform.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <set>
#include <sstream>

#include <json/reader.h>

#include "platform/velq_ui.h"

struct _tag_velq_zem_kx_ {
    _tag_velq_zem_kx_* pNext = nullptr;
    int64_t id = -1;
};

struct _tag_velq_zem_gpo_ {
    _tag_velq_zem_gpo_* pNext = nullptr;
    int64_t id = -1;
};

struct VLIBCSzHash {
    std::map<std::string, std::string> values;
};

int giTerminalDebug = 0;

namespace fake {

Platform platform;

namespace {

std::map<const void*, Json::Value> nodeOf;  // what a record holds
std::vector<_tag_velq_zem_delegate_> delegateList;
struct {
    int code = 0;
    const char* szFile = "";
    int line = 0;
} lastError;

void note(const std::string& name, const std::string& argument = "")
{
    if (platform.isQuiet) {
        return;
    }
    platform.calls.push_back(argument.empty() ? name : name + " " + argument);
}

// Notes a call that can fail. True: this one is to fail, errno is set.
bool fails(const char* name, const std::string& argument = "")
{
    if (platform.isQuiet) {
        return false;
    }
    note(name, argument);
    platform.fallible.push_back(name);
    const size_t number = platform.fallible.size();
    if (number < platform.failFirst || number > platform.failLast) {
        return false;
    }
    errno = platform.failErrno;
    return true;
}

template <typename Record>
Record* hold(Record* record, const char* kind)
{
    if (!platform.isQuiet) {
        platform.held[record] = kind;
    }
    return record;
}

template <typename Record>
void release(Record* record, const char* kind)
{
    note(std::string(kind) + "Free", record ? "" : "null");
    if (record && !platform.isQuiet && !platform.held.erase(record)) {
        ADD_FAILURE() << kind << " was released twice, or was never given out";
        return;
    }
    nodeOf.erase(record);
    delete record;
}

template <typename Record>
void releaseList(Record** head, const char* kind)
{
    note(std::string(kind) + "ListFree");
    while (*head) {
        Record* record = *head;
        *head = record->pNext;
        EXPECT_EQ(platform.held.erase(record), 1u) << kind << " list";
        nodeOf.erase(record);
        delete record;
    }
}

template <typename Record>
Record* makeList(const Json::Value& nodes, const char* kind)
{
    Record* head = nullptr;
    for (Json::ArrayIndex i = nodes.size(); i-- > 0;) {
        Record* record = hold(new Record, kind);
        record->pNext = head;
        nodeOf[record] = nodes[i];
        head = record;
    }
    return head;
}

template <typename Record>
int load(const char* name, const std::map<int64_t, Json::Value>& nodes, int64_t id, Record* record)
{
    if (fails(name, std::to_string(id))) {
        return -1;
    }
    const auto it = nodes.find(id);
    if (it == nodes.end()) {
        errno = ENOENT;
        return -1;
    }
    record->id = id;
    nodeOf[record] = it->second;
    return 0;
}

template <typename Record>
int toJson(const char* name, const Record* record, const Json::Value& fields, Json::Value& out)
{
    if (fails(name, fields.isNull() ? "" : fields[0].asString())) {
        return -1;
    }
    const Json::Value& node = nodeOf[record];
    if (fields.isNull() || !node.isObject()) {
        out = node;
        return 0;
    }
    for (const Json::Value& field : fields) {
        if (node.isMember(field.asString())) {
            out[field.asString()] = node[field.asString()];
        }
    }
    return 0;
}

template <typename Record>
int toRecord(const char* name, Json::Value& json, Record* record)
{
    if (fails(name)) {
        return -1;
    }
    Json::Value& node = nodeOf[record];
    if (record->id == -1 || !node.isObject()) {
        node = Json::Value(Json::objectValue);
    }
    if (json.isObject()) {
        for (const std::string& member : json.getMemberNames()) {
            node[member] = json[member];
        }
    }
    if (platform.onJsonToStruct) {
        platform.onJsonToStruct(json);
    }
    return 0;
}

template <typename Record>
int store(const char* name, std::map<int64_t, Json::Value>& nodes, Record* record)
{
    if (fails(name)) {
        return -1;
    }
    nodes[record->id] = nodeOf[record];
    return 0;
}

int copyText(const char* name, const std::string& text, char* buffer, size_t size)
{
    if (fails(name)) {
        return -1;
    }
    EXPECT_EQ(size, 4096u);
    EXPECT_TRUE(platform.isQuiet || std::all_of(buffer, buffer + size, [](char c) { return c == 0; }));
    strncpy(buffer, text.c_str(), size - 1);
    return 0;
}

int setDelegates(const char* name, int64_t id, int nodeType, Json::Value& record)
{
    if (fails(name, std::to_string(nodeType) + " " + std::to_string(id))) {
        return -1;
    }
    platform.delegates[{nodeType, id}].clear();
    if (record.isObject() && record["delegate"].isArray()) {
        platform.delegates[{nodeType, id}].resize(record["delegate"].size());
    }
    return 0;
}

// Replaces the line number of every place in the module by L, after checking it: all are the same, none is 0.
std::string plain(std::string line)
{
    const std::string ending = ".cpp:";
    std::set<std::string> places;
    for (size_t at = line.find("webapi_zem_"); at != std::string::npos; at = line.find("webapi_zem_", at)) {
        at = line.find(ending, at) + ending.size();
        const size_t end = line.find_first_not_of("0123456789", at);
        places.insert(line.substr(at, end - at));
        line.replace(at, end - at, "L");
    }
    EXPECT_EQ(places.size(), 1u) << line;
    EXPECT_EQ(places.count("0"), 0u) << line;
    return line;
}

std::string family(const std::string& file, bool withErrno, int err, const std::string& text)
{
    const std::string m = strerror(err);
    return "3 " + file + ":L (euid=" + std::to_string(geteuid()) + ")(pid=" + std::to_string(getpid()) + ")" +
           (withErrno ? "(" + m + ")" : "") + "(" + file + ":L)(" + m + ")" + text;
}

}  // namespace

void reset()
{
    EXPECT_TRUE(platform.held.empty()) << "still held: " << platform.held.begin()->second;
    platform = Platform();
    platform.uiVersion["major"] = 3;
    nodeOf.clear();
    delegateList.clear();
    lastError = {};
    giTerminalDebug = 0;
    errno = 0;
}

std::string failedCall(const std::string& expr, int err, const std::string& file)
{
    return family(file, err != 0, err,
                  std::string(err == EACCES ? "!!" : "") + "Failed [" + expr + "], err=" + strerror(err) + "\n\n");
}

std::string badParameter(int err, const std::string& file)
{
    return family(file, err != 0, err, "bad parameter\n\n");
}

std::string accessDenied(const std::string& expr)
{
    const std::string m = strerror(EACCES);
    return "3 webapi_zem_ou.cpp:L (euid=" + std::to_string(geteuid()) + ")(pid=" + std::to_string(getpid()) + ")(" + m +
           ")!!Failed [" + expr + "], err=" + m + "\n";
}

std::vector<std::string> mallocHash(int err)
{
    std::vector<std::string> lines;
    if (err == EACCES) {
        const std::string m = strerror(EACCES);
        lines.push_back("3 webapi_zem_ou.cpp:L (euid=" + std::to_string(geteuid()) +
                        ")(pid=" + std::to_string(getpid()) + ")(" + m + ")!!Fail EACESS, err=" + m + "\n");
    }
    lines.push_back(family("webapi_zem_ou.cpp", err != 0, err, "malloc hash failed\n\n"));
    return lines;
}

Json::Value json(std::string text)
{
    for (char& c : text) {
        c = c == '\'' ? '"' : c;
    }
    Json::Value value;
    Json::CharReaderBuilder builder;
    std::string errors;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &errors)) << text << errors;
    return value;
}

std::string call(Handler handler, const Json::Value& jParams, uint32_t uid)
{
    VELQ::APIRequest request(uid, "bob", jParams);
    VELQ::APIResponse response;
    handler(&request, &response);
    if (!response.IsSuccess()) {
        EXPECT_TRUE(response.GetData().isNull());
        return "error " + std::to_string(response.GetErrorCode());
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    std::string text = Json::writeString(builder, response.GetData());
    for (char& c : text) {
        c = c == '"' ? '\'' : c;
    }
    return "ok " + text;
}

Lines split(const std::string& text)
{
    Lines lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line, ';');) {
        lines.push_back(line);
    }
    return lines;
}

Logs noLines()
{
    return [](int) { return Lines(); };
}

Logs failedCalls(const Lines& exprs, const std::string& file)
{
    return [=](int err) {
        Lines lines;
        for (const std::string& expr : exprs) {
            lines.push_back(failedCall(expr, err, file));
        }
        return lines;
    };
}

Logs deniedAccess(const std::string& expr)
{
    return [=](int err) { return err == EACCES ? Lines{accessDenied(expr)} : Lines(); };
}

void sweep(const std::function<void()>& prepare, const std::function<std::string()>& run,
           const std::map<std::string, Outcome>& expected)
{
    prepare();
    const std::string success = run();
    const std::vector<std::string> names = platform.fallible;
    for (size_t n = 1; n <= names.size(); ++n) {
        for (const int err : {0, ENOENT, EACCES}) {
            for (const size_t last : {n, names.size() + 99}) {
                SCOPED_TRACE(names[n - 1] + " as call " + std::to_string(n) + ", errno " + std::to_string(err) +
                             (last == n ? "" : ", and all after it"));
                prepare();
                platform.failFirst = n;
                platform.failLast = last;
                platform.failErrno = err;
                const std::string result = run();
                EXPECT_TRUE(platform.held.empty());
                const auto it = expected.find(names[n - 1]);
                ASSERT_NE(it, expected.end());
                if (last == n) {
                    EXPECT_EQ(result, it->second.result.empty() ? success : it->second.result);
                    EXPECT_EQ(platform.logs, it->second.logs(err));
                }
                prepare();
                EXPECT_EQ(run(), success);
            }
        }
    }
    reset();
}

}  // namespace fake

using namespace fake;

extern "C" void syslog(int priority, const char* szFormat, ...)
{
    char szLine[2048];
    va_list args;
    va_start(args, szFormat);
    vsnprintf(szLine, sizeof(szLine), szFormat, args);
    va_end(args);
    platform.logs.push_back(plain(std::to_string(priority) + " " + szLine));
    errno = EXDEV;  // a real one may change it, too
}

VLIBCString::VLIBCString() {}
VLIBCString::VLIBCString(const char* szText) : m_pText(std::make_shared<const std::string>(szText)) {}
VLIBCString::VLIBCString(const std::string& text) : m_pText(std::make_shared<const std::string>(text)) {}
VLIBCString::VLIBCString(const VLIBCString& other) = default;
VLIBCString& VLIBCString::operator=(const VLIBCString& other) = default;
VLIBCString::~VLIBCString() = default;

const char* VLIBCString::c_str() const
{
    return m_pText ? m_pText->c_str() : "";
}

int VLIBCErrGet(void)
{
    note("ErrGet");
    return lastError.code;
}

const char* VLIBCErrorGetFile(void)
{
    note("ErrorGetFile");
    return lastError.szFile;
}

int VLIBCErrorGetLine(void)
{
    note("ErrorGetLine");
    return lastError.line;
}

void VLIBCErrSetEx(int code, const char* szFile, int line)
{
    lastError = {code, szFile, line};
}

VLIBCSzHash* VLIBCSzHashAlloc(int size)
{
    return fails("HashAlloc", std::to_string(size)) ? nullptr : hold(new VLIBCSzHash, "Hash");
}

int VLIBCSzHashSetValue(VLIBCSzHash** ppHash, const char* szKey, const char* szValue)
{
    if (fails("HashSetValue", szKey)) {
        return -1;
    }
    VLIBCSzHash* replaced = hold(new VLIBCSzHash(**ppHash), "Hash");  // the handle changes with every call
    platform.held.erase(*ppHash);
    delete *ppHash;
    *ppHash = replaced;
    replaced->values[szKey] = szValue;
    return 0;
}

void VLIBCSzHashFree(VLIBCSzHash* pHash)
{
    release(pHash, "Hash");
}

VELQ::APIRequest::APIRequest(uint32_t loginUid, std::string loginUserName, Json::Value jParams)
    : m_loginUid(loginUid), m_loginUserName(std::move(loginUserName)), m_jParams(std::move(jParams))
{
}

uint32_t VELQ::APIRequest::GetLoginUID() const
{
    note("GetLoginUID");
    return m_loginUid;
}

std::string VELQ::APIRequest::GetLoginUserName() const
{
    note("GetLoginUserName");
    return m_loginUserName;
}

bool VELQ::APIRequest::HasParam(const std::string& name) const
{
    note("HasParam", name);
    return m_jParams.isMember(name);
}

Json::Value VELQ::APIRequest::GetParam(const std::string& name, const Json::Value& jDefault) const
{
    note("GetParam", name);
    return m_jParams.get(name, jDefault);
}

void VELQ::APIResponse::SetError(int code, const Json::Value& jData)
{
    note("SetError", std::to_string(code));
    m_success = false;
    m_errorCode = code;
    m_jData = jData;
}

void VELQ::APIResponse::SetSuccess(const Json::Value& jData)
{
    note("SetSuccess");
    m_success = true;
    m_errorCode = 0;
    m_jData = jData;
}

bool VELQ::APIResponse::IsSuccess() const
{
    return m_success;
}

int VELQ::APIResponse::GetErrorCode() const
{
    return m_errorCode;
}

const Json::Value& VELQ::APIResponse::GetData() const
{
    return m_jData;
}

Json::Value GetUIVersion(int flag)
{
    return fails("GetUIVersion", std::to_string(flag)) ? Json::Value() : platform.uiVersion;
}

// The functions that every kind of record has, and those of the kinds that can be stored.
#define RECORD_FUNCTIONS(Kind, Record)                                                                         \
    Record* VELQZEM##Kind##Alloc(void)                                                                         \
    {                                                                                                          \
        return fails(#Kind "Alloc") ? nullptr : hold(new Record, #Kind);                                       \
    }                                                                                                          \
    void VELQZEM##Kind##Free(Record* pRecord)                                                                  \
    {                                                                                                          \
        release(pRecord, #Kind);                                                                               \
    }                                                                                                          \
    void VELQZEM##Kind##ListFree(Record** ppHead)                                                              \
    {                                                                                                          \
        releaseList(ppHead, #Kind);                                                                            \
    }                                                                                                          \
    int VELQZEM##Kind##StructToJson(const Record* pRecord, const Json::Value& jSearchArray, Json::Value& jOut) \
    {                                                                                                          \
        return toJson(#Kind "StructToJson", pRecord, jSearchArray, jOut);                                      \
    }
#define STORE_FUNCTIONS(Kind, Record, nodes)            \
    int VELQZEM##Kind##Get(int64_t id, Record* pRecord) \
    {                                                   \
        return load(#Kind "Get", nodes, id, pRecord);   \
    }                                                   \
    int VELQZEM##Kind##Set(Record* pRecord)             \
    {                                                   \
        return store(#Kind "Set", nodes, pRecord);      \
    }

RECORD_FUNCTIONS(Ou, _tag_velq_zem_ou_)
RECORD_FUNCTIONS(Kx, _tag_velq_zem_kx_)
RECORD_FUNCTIONS(Gpo, _tag_velq_zem_gpo_)
STORE_FUNCTIONS(Ou, _tag_velq_zem_ou_, platform.groups)
STORE_FUNCTIONS(Kx, _tag_velq_zem_kx_, platform.servers)

int VELQZEMOuCreate(_tag_velq_zem_ou_* pOu)
{
    if (fails("OuCreate")) {
        return -1;
    }
    pOu->id = platform.nextId++;
    platform.groups[pOu->id] = nodeOf[pOu];
    return 0;
}

int VELQZEMOuDeleteAllByID(int64_t id)
{
    if (fails("OuDeleteAllByID", std::to_string(id))) {
        return -1;
    }
    platform.groups.erase(id);
    return 0;
}

int VELQZEMOuItemGetID(int64_t* pId, const _tag_velq_zem_ou_* pOu)
{
    if (fails("OuItemGetID")) {
        return -1;
    }
    *pId = pOu->id;
    return 0;
}

int VELQZEMOuJsonToStruct(Json::Value& jRecord, _tag_velq_zem_ou_* pOu)
{
    if (0 > toRecord("OuJsonToStruct", jRecord, pOu)) {
        return -1;
    }
    const Json::Value jParentId = nodeOf[pOu].get("parent_id", 0);
    pOu->parentId = jParentId.isInt64() ? jParentId.asInt64() : 0;
    return 0;
}

int VELQZEMOuCanManagedByUid(uint32_t uid, int64_t id)
{
    const auto it = platform.mayManage.find(id);
    if (fails("OuCanManagedByUid", std::to_string(uid) + " " + std::to_string(id)) ||
        (it != platform.mayManage.end() && !it->second)) {
        lastError = {0x0D01, "store.cpp", 77};
        return 0;
    }
    return 2;
}

int VELQZEMKxJsonToStruct(Json::Value& jRecord, _tag_velq_zem_kx_* pKx)
{
    return toRecord("KxJsonToStruct", jRecord, pKx);
}

int VELQZEMGpoGet(int64_t id, _tag_velq_zem_gpo_* pGpo)
{
    if (fails("GpoGet", std::to_string(id))) {
        return -1;
    }
    pGpo->id = id;
    if (platform.policies.count(id)) {
        return 0;
    }
    errno = ENOENT;
    return -1;
}

int VELQZEMGpoItemGetName(char* szBuf, size_t cbBuf, const _tag_velq_zem_gpo_* pGpo)
{
    return copyText("GpoItemGetName", platform.policies[pGpo->id].first, szBuf, cbBuf);
}

int VELQZEMGpoItemGetDescription(char* szBuf, size_t cbBuf, const _tag_velq_zem_gpo_* pGpo)
{
    return copyText("GpoItemGetDescription", platform.policies[pGpo->id].second, szBuf, cbBuf);
}

int VELQZEMGpoGetWithVersionConvert(Json::Value& jSetting, Json::Value& jUIVersion)
{
    if (fails("GpoGetWithVersionConvert")) {
        return -1;
    }
    jSetting = jUIVersion;
    return 0;
}

int VELQZEMGpoNotifyFetch(uint32_t uid, int nodeType, int64_t id)
{
    const std::string argument = std::to_string(uid) + " " + std::to_string(nodeType) + " " + std::to_string(id);
    return fails("GpoNotifyFetch", argument) ? -1 : 0;
}

int VELQZEMDelegateListByTarget(int64_t id, int nodeType, _tag_velq_zem_delegate_** ppHead, int* pCount)
{
    if (fails("DelegateListByTarget", std::to_string(nodeType) + " " + std::to_string(id))) {
        return -1;
    }
    delegateList.clear();
    for (const Delegate& delegate : platform.delegates[{nodeType, id}]) {
        delegateList.push_back({nullptr, delegate.userType, delegate.ugid, delegate.extraInfo});
    }
    for (size_t i = 1; i < delegateList.size(); ++i) {
        delegateList[i - 1].pNext = &delegateList[i];
    }
    *ppHead = delegateList.empty() ? nullptr : delegateList.data();
    *pCount = static_cast<int>(delegateList.size());
    return 0;
}

int VELQDelegateUpdateExtraInfoList(_tag_velq_zem_delegate_* pHead, BOOL flag)
{
    const std::string argument = std::string(pHead ? "list" : "null") + (flag == TRUE ? " TRUE" : " FALSE");
    return fails("DelegateUpdateExtraInfoList", argument) ? -1 : 0;
}

int VELQZEMDelegateItemGetUserType(int64_t* pUserType, const _tag_velq_zem_delegate_* pItem)
{
    *pUserType = pItem->userType;
    return fails("DelegateItemGetUserType") ? -1 : 0;
}

int VELQZEMDelegateItemGetUGID(uint64_t* pUgid, const _tag_velq_zem_delegate_* pItem)
{
    *pUgid = pItem->ugid;
    return fails("DelegateItemGetUGID") ? -1 : 0;
}

_tag_velq_zem_delegate_* VELQZEMDelegateNext(const _tag_velq_zem_delegate_* pItem)
{
    note("DelegateNext");
    return pItem->pNext;
}

int VELQZEMDelegateOverrideListByTarget(int64_t id, int nodeType, Json::Value& jRecord)
{
    return setDelegates("DelegateOverrideListByTarget", id, nodeType, jRecord);
}

int VELQZEMDelegateSetListByTarget(int64_t id, int nodeType, Json::Value& jRecord)
{
    return setDelegates("DelegateSetListByTarget", id, nodeType, jRecord);
}

int VELQZEMListTreeByUidHash(VLIBCSzHash* pHash, _tag_velq_zem_ou_** ppOu, _tag_velq_zem_kx_** ppKx,
                             _tag_velq_zem_gpo_** ppGpo)
{
    platform.hash = pHash->values;
    if (fails("ListTreeByUidHash")) {
        return -1;
    }
    *ppOu = makeList<_tag_velq_zem_ou_>(platform.listedGroups, "Ou");
    *ppKx = makeList<_tag_velq_zem_kx_>(platform.listedServers, "Kx");
    *ppGpo = makeList<_tag_velq_zem_gpo_>(platform.listedPolicies, "Gpo");
    return 0;
}

int VELQZEMListOneLevelByUidHash(VLIBCSzHash* pHash, _tag_velq_zem_ou_** ppHead, int* pTotal, int* pCount)
{
    platform.hash = pHash->values;
    EXPECT_EQ(pTotal, nullptr);
    EXPECT_EQ(pCount, nullptr);
    if (fails("ListOneLevelByUidHash")) {
        return -1;
    }
    *ppHead = makeList<_tag_velq_zem_ou_>(platform.listedGroups, "Ou");
    return 0;
}

int VELQZEMHttpReqToJsonForLinkedGpo(const Json::Value& jValue, Json::Value& jRecord)
{
    if (fails("HttpReqToJsonForLinkedGpo")) {
        return -1;
    }
    jRecord["linked_gpo"] = jValue;
    return 0;
}
