// Implements the core library: shared strings, the last-error record of each thread, and the string hash.
#include <cerrno>
#include <new>
#include <unordered_map>

#include "platform/velq_core.h"

int giTerminalDebug = 0;

VLIBCString::VLIBCString() = default;

VLIBCString::VLIBCString(const char* szText) : VLIBCString(std::string(szText == nullptr ? "" : szText)) {}

VLIBCString::VLIBCString(const std::string& text)
{
    if (!text.empty()) {
        m_pText = std::make_shared<const std::string>(text);
    }
}

VLIBCString::VLIBCString(const VLIBCString& other) = default;
VLIBCString& VLIBCString::operator=(const VLIBCString& other) = default;
VLIBCString::~VLIBCString() = default;

const char* VLIBCString::c_str() const
{
    return m_pText ? m_pText->c_str() : "";
}

bool VLIBCString::empty() const
{
    return m_pText == nullptr;
}

namespace {

struct LastError {
    int code = 0;
    const char* szFile = "";
    int line = 0;
};

thread_local LastError tLastError;

}  // namespace

int VLIBCErrGet(void)
{
    return tLastError.code;
}

const char* VLIBCErrorGetFile(void)
{
    return tLastError.szFile;
}

int VLIBCErrorGetLine(void)
{
    return tLastError.line;
}

void VLIBCErrSetEx(int code, const char* szFile, int line)
{
    tLastError = {code, szFile == nullptr ? "" : szFile, line};
}

struct VLIBCSzHash {
    std::unordered_map<std::string, std::string> values;
};

VLIBCSzHash* VLIBCSzHashAlloc(int size)
{
    if (size < 1) {
        errno = EINVAL;
        return nullptr;
    }
    VLIBCSzHash* pHash = new (std::nothrow) VLIBCSzHash;  // the size is only a hint and not needed here
    if (pHash == nullptr) {
        errno = ENOMEM;
    }
    return pHash;
}

int VLIBCSzHashSetValue(VLIBCSzHash** ppHash, const char* szKey, const char* szValue)
try {
    if (ppHash == nullptr || *ppHash == nullptr || szKey == nullptr || szValue == nullptr) {
        errno = EINVAL;
        return -1;
    }
    std::string value(szValue);
    (*ppHash)->values[szKey].swap(value);
    return 0;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
}

const char* VLIBCSzHashGetValue(const VLIBCSzHash* pHash, const char* szKey)
try {
    if (pHash == nullptr || szKey == nullptr) {
        return nullptr;
    }
    const auto found = pHash->values.find(szKey);
    return found == pHash->values.end() ? nullptr : found->second.c_str();
} catch (const std::bad_alloc&) {
    return nullptr;
}

void VLIBCSzHashFree(VLIBCSzHash* pHash)
{
    delete pHash;
}
