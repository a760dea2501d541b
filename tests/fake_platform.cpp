// Implements the fake platform.
#include "tests/fake_platform.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <new>

#include <gtest/gtest.h>
#include <syslog.h>

#include "platform/velq_ui.h"

using fake::Lines;
using fake::platform;

struct _tag_velq_zem_kx_ {
    _tag_velq_zem_kx_* pNext = nullptr;
    int64_t id = -1;
};

struct _tag_velq_zem_gpo_ {
    _tag_velq_zem_gpo_* pNext = nullptr;
    int64_t id = -1;
};

struct VLIBCSzHash {};

int giTerminalDebug = 0;
fake::Platform fake::platform;

namespace {

using Nodes = std::map<int64_t, Json::Value>;

std::map<const void*, Json::Value> nodeOf;  // the contents of each record
std::vector<_tag_velq_zem_delegate_> listedDelegates;
std::pair<int, int64_t> listedTarget;  // kind and identifier of the node whose delegates were listed
constexpr int kDone = 1;               // a result other than 0: only a negative one is a failure
struct {
    int code;
    const char* szFile;
    int line;
} lastError;

template <typename... Arguments>
void record(const char* szName, const Arguments&... arguments)
{
    if (platform.isQuiet) {
        return;
    }
    for (const char* szPrefix : {"VELQZEM", "VELQ", "VLIBCSz", "VLIBC"}) {
        if (strncmp(szName, szPrefix, strlen(szPrefix)) == 0) {
            szName += strlen(szPrefix);
            break;
        }
    }
    std::ostringstream text;
    text << szName;
    ((text << ' ' << arguments), ...);
    std::string call = text.str();
    platform.calls.push_back(call.erase(call.find_last_not_of(' ') + 1));  // without trailing empty arguments
}

// Records a call that can fail. Returns whether it must fail; errno is then set.
template <typename... Arguments>
bool fails(const char* szName, const Arguments&... arguments)
{
    if (platform.isQuiet) {
        return false;
    }
    record(szName, arguments...);
    platform.fallible.push_back(platform.calls.back());
    const size_t number = platform.fallible.size();
    if (number < platform.failFirst || number > platform.failLast) {
        return false;
    }
    if (platform.isThrowing) {
        throw std::bad_alloc();
    }
    errno = platform.failErrno;
    return true;
}

template <typename Object>
Object* hold(Object* pObject)
{
    if (!platform.isQuiet) {
        platform.held.insert(pObject);
    }
    return pObject;
}

// Returns a new record; that of a server contains its kind.
template <typename Record>
Record* makeRecord()
{
    Record* pRecord = hold(new Record);
    if constexpr (std::is_same_v<Record, _tag_velq_zem_kx_>) {
        nodeOf[pRecord] = platform.freshServer;
    }
    return pRecord;
}

template <typename Object>
void release(Object* pObject)
{
    if (pObject != nullptr && !platform.isQuiet && platform.held.erase(pObject) == 0) {
        ADD_FAILURE() << "released twice, or never given out";
        return;
    }
    nodeOf.erase(pObject);
    delete pObject;
}

template <typename Record>
void releaseList(Record*& pHead)
{
    while (pHead != nullptr) {
        release(std::exchange(pHead, pHead->pNext));
    }
}

template <typename Record>
void makeList(const Json::Value& jNodes, Record*& pHead)
{
    for (Json::ArrayIndex i = jNodes.size(); i-- > 0;) {
        Record* pRecord = hold(new Record);
        pRecord->pNext = std::exchange(pHead, pRecord);
        nodeOf[pRecord] = jNodes[i];
    }
}

void listTree(_tag_velq_zem_ou_** ppOu, _tag_velq_zem_kx_** ppKx, _tag_velq_zem_gpo_** ppGpo)
{
    makeList(platform.listedGroups, *ppOu);
    makeList(platform.listedServers, *ppKx);
    makeList(platform.listedPolicies, *ppGpo);
}

// Replaces the hash: its address changes with every value that is set.
int renew(VLIBCSzHash*& pHash)
{
    release(std::exchange(pHash, hold(new VLIBCSzHash)));
    return kDone;
}

int orMissing(bool isFound)
{
    errno = isFound ? errno : ENOENT;
    return isFound ? kDone : -1;
}

template <typename Record>
int load(const Nodes& nodes, int64_t id, Record* pRecord)
{
    const auto it = nodes.find(id);
    if (it != nodes.end()) {
        pRecord->id = id;
        nodeOf[pRecord] = it->second;
    }
    return orMissing(it != nodes.end());
}

template <typename Record>
int store(Nodes& nodes, const Record* pRecord)
{
    nodes[pRecord->id] = nodeOf[pRecord];
    return kDone;
}

int create(_tag_velq_zem_ou_* pOu)
{
    pOu->id = platform.nextId++;
    return store(platform.groups, pOu);
}

int toJson(const void* pRecord, const Json::Value& jNames, Json::Value& jOut)
{
    const Json::Value& jNode = nodeOf[pRecord];
    jOut = jNames.isNull() || !jNode.isObject() ? jNode : Json::Value(Json::objectValue);
    for (const Json::Value& jName : jNames) {
        if (jOut.isObject() && jNode.isMember(jName.asString())) {
            jOut[jName.asString()] = jNode[jName.asString()];
        }
    }
    return kDone;
}

int spoil(Json::Value& jRecord)
{
    if (platform.onConversion) {
        platform.onConversion(jRecord);
    }
    return kDone;
}

template <typename Record>
int toRecord(Json::Value& jRecord, Record* pRecord)
{
    if (!jRecord.isObject()) {
        errno = EINVAL;
        return -1;
    }
    Json::Value& jNode = nodeOf[pRecord];
    if (pRecord->id == -1 || !jNode.isObject()) {
        jNode = Json::Value(Json::objectValue);
    }
    for (const std::string& name : jRecord.getMemberNames()) {
        jNode[name] = jRecord[name];
    }
    if constexpr (requires { pRecord->parentId; }) {
        const Json::Value jParentId = jNode.get("parent_id", Json::Int64(pRecord->parentId));
        pRecord->parentId = jParentId.isInt64() ? jParentId.asInt64() : 0;
    }
    return spoil(jRecord);
}

int copyText(const std::string& text, char* szBuf, size_t cbBuf)
{
    EXPECT_EQ(cbBuf, 4096u);
    EXPECT_TRUE(platform.isQuiet || std::all_of(szBuf, szBuf + cbBuf, [](char c) { return c == 0; }));
    strncpy(szBuf, text.c_str(), cbBuf - 1);
    return kDone;
}

int listDelegates(int64_t id, int nodeType, _tag_velq_zem_delegate_** ppHead, int* pCount)
{
    listedTarget = {nodeType, id};
    listedDelegates = platform.delegates[listedTarget];
    for (size_t i = 0; i < listedDelegates.size(); ++i) {
        listedDelegates[i].extraInfo = "";
        listedDelegates[i].pNext = i + 1 < listedDelegates.size() ? &listedDelegates[i + 1] : nullptr;
    }
    *ppHead = listedDelegates.empty() ? nullptr : listedDelegates.data();
    *pCount = static_cast<int>(listedDelegates.size());
    return kDone;
}

// Gives the listed delegates their extra information, which they lack until then.
int refreshDelegates()
{
    for (size_t i = 0; i < listedDelegates.size(); ++i) {
        listedDelegates[i].extraInfo = platform.delegates[listedTarget][i].extraInfo;
    }
    return kDone;
}

std::string compact(const Json::Value& jValue)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, jValue);
}

// Returns the short form of a log line. Checks that it begins with one of the source files and a line number, and that
// a failure line repeats them.
std::string shortForm(const std::string& line, int err)
{
    const std::string place = line.substr(0, line.find(' '));
    const std::string source = place.substr(0, place.find(':'));
    EXPECT_TRUE(source == "webapi_zem_ou.cpp" || source == "webapi_zem_lib.cpp") << line;
    EXPECT_GT(atoi(place.c_str() + place.find(':') + 1), 0) << line;
    std::string text = source == "webapi_zem_lib.cpp" ? "lib: " : "";
    if (line.find(" (euid=") == std::string::npos) {
        return text + line.substr(place.size() + 1);
    }
    text += line.find("(" + place + ")") == std::string::npos ? "denied: " : "";
    size_t begin = std::string::npos;
    for (const char* szText : {"Failed [", "Fail EACESS", "bad parameter", "malloc hash failed"}) {
        begin = std::min(begin, line.find(szText));
    }
    text += line.substr(begin, std::min(line.find(", err="), line.find('\n')) - begin);
    return fake::withErrno(text, err);
}

void takeLine(int priority, const char* szFormat, va_list arguments)
{
    const int err = errno;
    char szLine[2048];
    vsnprintf(szLine, sizeof(szLine), szFormat, arguments);
    EXPECT_EQ(priority, LOG_ERR);
    if (!platform.isQuiet) {
        platform.rawLogs += szLine;
        platform.logs.push_back(shortForm(szLine, err));
    }
    errno = EXDEV;  // the real syslog may change it
}

}  // namespace

void fake::reset()
{
    EXPECT_TRUE(platform.held.empty()) << "not released";
    platform = Platform();
    nodeOf.clear();
    listedDelegates.clear();
    lastError = {0, "", 0};
    giTerminalDebug = 0;
    errno = 0;
}

std::string fake::withErrno(const std::string& text, int err)
{
    return err == 0 ? text : text + " (" + std::to_string(err) + ")";
}

Lines fake::split(const std::string& text)
{
    Lines lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line, ';');) {
        lines.push_back(line);
    }
    return lines;
}

std::string fake::call(test::Handler handler, const Json::Value& jParams, uint32_t uid)
{
    VELQ::APIResponse response = test::answerOf(handler, jParams, uid);
    if (!response.IsSuccess()) {
        EXPECT_TRUE(response.GetData().isNull());
        return "error " + std::to_string(response.GetErrorCode());
    }
    std::string text = response.TakeData()[0];
    std::replace(text.begin(), text.end(), '"', '\'');
    return "ok " + text;
}

std::string fake::call(const std::string& method, const Json::Value& jParams, uint32_t uid)
{
    return call(test::handlerOf(method), jParams, uid);
}

extern "C" void syslog(int priority, const char* szFormat, ...)
{
    va_list arguments;
    va_start(arguments, szFormat);
    takeLine(priority, szFormat, arguments);
    va_end(arguments);
}

// The function that the C library calls instead when formats are checked.
extern "C" void __syslog_chk(int priority, int, const char* szFormat, ...)
{
    va_list arguments;
    va_start(arguments, szFormat);
    takeLine(priority, szFormat, arguments);
    va_end(arguments);
}

// --- The core library and the framework

VLIBCString::VLIBCString() = default;
VLIBCString::VLIBCString(const char* szText) : VLIBCString(std::string(szText)) {}
VLIBCString::VLIBCString(const std::string& text) : m_pText(std::make_shared<const std::string>(text)) {}
VLIBCString::VLIBCString(const VLIBCString& other) = default;
VLIBCString& VLIBCString::operator=(const VLIBCString& other) = default;
VLIBCString::~VLIBCString() = default;

void VLIBCErrSetEx(int code, const char* szFile, int line)
{
    lastError = {code, szFile, line};
}

// RETURNS defines a function that returns a value, RECORDED one that is also recorded, FALLIBLE one that is recorded
// and can fail. Arguments after the value are recorded with the call.
#define RETURNS(function, value) \
    function                     \
    {                            \
        return value;            \
    }
#define RECORDED(function, value, ...) RETURNS(function, (record(__func__ __VA_OPT__(, ) __VA_ARGS__), value))
#define FALLIBLE(function, failure, value, ...) \
    RETURNS(function, fails(__func__ __VA_OPT__(, ) __VA_ARGS__) ? failure : value)

RETURNS(const char* VLIBCString::c_str() const, m_pText ? m_pText->c_str() : "")
RECORDED(int VLIBCErrGet(void), lastError.code)
RECORDED(const char* VLIBCErrorGetFile(void), lastError.szFile)
RECORDED(int VLIBCErrorGetLine(void), lastError.line)
FALLIBLE(VLIBCSzHash* VLIBCSzHashAlloc(int size), nullptr, hold(new VLIBCSzHash), size)
FALLIBLE(int VLIBCSzHashSetValue(VLIBCSzHash** ppHash, const char* szKey, const char* szValue), -1, renew(*ppHash),
         szKey, szValue)
RECORDED(void VLIBCSzHashFree(VLIBCSzHash* pHash), release(pHash), pHash == nullptr ? "null" : "")
FALLIBLE(Json::Value GetUIVersion(int flag), Json::Value(), platform.uiVersion, flag)

RECORDED(uint32_t VELQ::APIRequest::GetLoginUID() const, m_loginUid)
RECORDED(std::string VELQ::APIRequest::GetLoginUserName() const, m_loginUserName)
RETURNS(bool VELQ::APIRequest::HasParam(const std::string& name) const, m_jParams.isMember(name))
RETURNS(Json::Value VELQ::APIRequest::GetParam(const std::string& name, const Json::Value& jDefault) const,
        m_jParams.get(name, jDefault))
RETURNS(bool VELQ::APIResponse::IsSuccess() const, m_success)
RETURNS(int VELQ::APIResponse::GetErrorCode() const, m_errorCode)
RETURNS(Json::Value VELQ::APIResponse::GetData() const, m_data.empty() ? Json::Value() : test::json(m_data[0]))
RETURNS(std::vector<std::string> VELQ::APIResponse::TakeData(), std::exchange(m_data, {}))

VELQ::APIRequest::APIRequest(uint32_t loginUid, std::string loginUserName, Json::Value jParams)
    : m_loginUid(loginUid), m_loginUserName(std::move(loginUserName)), m_jParams(std::move(jParams))
{
}

void VELQ::APIResponse::SetError(int code, const Json::Value& jData)
{
    record("SetError", code);
    m_success = false;
    m_errorCode = code;
    m_data = {compact(jData)};
}

void VELQ::APIResponse::SetSuccess(const Json::Value& jData)
{
    record("SetSuccess");
    m_success = true;
    m_errorCode = 0;
    m_data = {compact(jData)};
}

// --- The store

// Functions of every kind of record.
#define RECORD_FUNCTIONS(Kind, Record)                                                                                 \
    FALLIBLE(Record* VELQZEM##Kind##Alloc(void), nullptr, makeRecord<Record>())                                        \
    RECORDED(void VELQZEM##Kind##Free(Record* pRecord), release(pRecord), pRecord == nullptr ? "null" : "")            \
    RECORDED(void VELQZEM##Kind##ListFree(Record** ppHead), releaseList(*ppHead))                                      \
    FALLIBLE(int VELQZEM##Kind##StructToJson(const Record* pRecord, const Json::Value& jNames, Json::Value& jOut), -1, \
             toJson(pRecord, jNames, jOut), jNames.isNull() ? "" : jNames[0].asString())

// Functions of the kinds that the module changes.
#define STORED_FUNCTIONS(Kind, Record, nodes)                                                       \
    FALLIBLE(int VELQZEM##Kind##Get(int64_t id, Record* pRecord), -1, load(nodes, id, pRecord), id) \
    FALLIBLE(int VELQZEM##Kind##Set(Record* pRecord), -1, store(nodes, pRecord))                    \
    FALLIBLE(int VELQZEM##Kind##JsonToStruct(Json::Value& jRecord, Record* pRecord), -1, toRecord(jRecord, pRecord))

RECORD_FUNCTIONS(Ou, _tag_velq_zem_ou_)
RECORD_FUNCTIONS(Kx, _tag_velq_zem_kx_)
RECORD_FUNCTIONS(Gpo, _tag_velq_zem_gpo_)
STORED_FUNCTIONS(Ou, _tag_velq_zem_ou_, platform.groups)
STORED_FUNCTIONS(Kx, _tag_velq_zem_kx_, platform.servers)

FALLIBLE(int VELQZEMOuCreate(_tag_velq_zem_ou_* pOu), -1, create(pOu))
FALLIBLE(int VELQZEMOuDeleteAllByID(int64_t id), -1, (platform.groups.erase(id), kDone), id)
FALLIBLE(int VELQZEMOuItemGetID(int64_t* pId, const _tag_velq_zem_ou_* pOu), -1, (*pId = pOu->id, kDone))
FALLIBLE(int VELQZEMHttpReqToJsonForLinkedGpo(const Json::Value& jValue, Json::Value& jRecord), -1,
         (jRecord["linked_gpo"]["order"] = jValue, spoil(jRecord)))
FALLIBLE(int VELQZEMGpoGet(int64_t id, _tag_velq_zem_gpo_* pGpo), -1,
         (pGpo->id = id, orMissing(platform.policies.contains(id))), id)
FALLIBLE(int VELQZEMGpoItemGetName(char* szBuf, size_t cbBuf, const _tag_velq_zem_gpo_* pGpo), -1,
         copyText(platform.policies[pGpo->id].first, szBuf, cbBuf))
FALLIBLE(int VELQZEMGpoItemGetDescription(char* szBuf, size_t cbBuf, const _tag_velq_zem_gpo_* pGpo), -1,
         copyText(platform.policies[pGpo->id].second, szBuf, cbBuf))
FALLIBLE(int VELQZEMGpoGetWithVersionConvert(Json::Value& jSetting, Json::Value& jUIVersion), -1,
         (jSetting = jUIVersion, kDone))
FALLIBLE(int VELQZEMGpoNotifyFetch(uint32_t uid, int nodeType, int64_t id), -1, kDone, uid, nodeType, id)
FALLIBLE(int VELQZEMDelegateListByTarget(int64_t id, int nodeType, _tag_velq_zem_delegate_** ppHead, int* pCount), -1,
         listDelegates(id, nodeType, ppHead, pCount), nodeType, id)
FALLIBLE(int VELQDelegateUpdateExtraInfoList(_tag_velq_zem_delegate_* pHead, BOOL flag), -1, refreshDelegates(),
         listedTarget.first, pHead == nullptr ? "null" : "list", flag == TRUE ? "TRUE" : "FALSE")
FALLIBLE(int VELQZEMDelegateItemGetUserType(int64_t* pUserType, const _tag_velq_zem_delegate_* pItem), -1,
         (*pUserType = pItem->userType, kDone))
FALLIBLE(int VELQZEMDelegateItemGetUGID(uint64_t* pUgid, const _tag_velq_zem_delegate_* pItem), -1,
         (*pUgid = pItem->ugid, kDone))
RECORDED(_tag_velq_zem_delegate_* VELQZEMDelegateNext(const _tag_velq_zem_delegate_* pItem), pItem->pNext)
FALLIBLE(int VELQZEMDelegateOverrideListByTarget(int64_t id, int nodeType, Json::Value&), -1, kDone, nodeType, id)
FALLIBLE(int VELQZEMDelegateSetListByTarget(int64_t id, int nodeType, Json::Value&), -1, kDone, nodeType, id)

int VELQZEMOuCanManagedByUid(uint32_t uid, int64_t id)
{
    if (!fails(__func__, uid, id) && !platform.refused.contains(id)) {
        return id % 2 == 0 ? 2 : -2;  // any number but 0 is a permission
    }
    lastError = {0x0D01, "store.cpp", 77};
    return 0;
}

// The listings return their records even when they fail.
FALLIBLE(int VELQZEMListTreeByUidHash(VLIBCSzHash* pHash, _tag_velq_zem_ou_** ppOu, _tag_velq_zem_kx_** ppKx,
                                      _tag_velq_zem_gpo_** ppGpo),
         (listTree(ppOu, ppKx, ppGpo), -1), (listTree(ppOu, ppKx, ppGpo), kDone),
         platform.held.contains(pHash) ? "" : "hash")
FALLIBLE(int VELQZEMListOneLevelByUidHash(VLIBCSzHash* pHash, _tag_velq_zem_ou_** ppHead, int* pTotal, int* pCount),
         (makeList(platform.listedGroups, *ppHead), -1), (makeList(platform.listedGroups, *ppHead), kDone),
         platform.held.contains(pHash) ? "" : "hash", pTotal == nullptr && pCount == nullptr ? "" : "counts")
