// The core library: the last-error record, the string hash, the shared string, and the terminal-debug switch.
#pragma once

#include <memory>
#include <string>

// Immutable text. Copies share one reference-counted buffer; copies may be made and destroyed on several threads at
// once, one object must not be assigned to while another thread reads it.
class VLIBCString {
public:
    VLIBCString();                         // empty
    VLIBCString(const char* szText);       // a copy of the text up to its NUL; null counts as empty
    VLIBCString(const std::string& text);  // a copy of the text
    VLIBCString(const VLIBCString& other);
    VLIBCString& operator=(const VLIBCString& other);
    ~VLIBCString();

    // The text, NUL-terminated, never null. Owned by this object: valid until it is assigned to or destroyed.
    const char* c_str() const;

    bool empty() const;

private:
    std::shared_ptr<const std::string> m_pText;  // null: empty
};

extern "C" {

typedef int BOOL;
enum { FALSE = 0, TRUE = 1 };

// Non-zero: failure lines are echoed to standard output. Set by the process before it calls a module, read at any
// time by any thread.
extern int giTerminalDebug;

// --- The last-error record: one per thread, no locking needed. It starts as code 0, file "", line 0.

// The error code of the calling thread's last error, 0 when none was set.
int VLIBCErrGet(void);

// The source file of the calling thread's last error; never null. The text is the one given to VLIBCErrSetEx.
const char* VLIBCErrorGetFile(void);

// The source line of the calling thread's last error, counted from 1.
int VLIBCErrorGetLine(void);

// Sets the calling thread's record. szFile: must stay valid for as long as the record may be read (a literal); null
// counts as "". line: counted from 1. errno is left as it is.
void VLIBCErrSetEx(int code, const char* szFile, int line);

// --- The string hash: text keys to text values. One thread at a time per hash.

struct VLIBCSzHash;

// Makes an empty hash. size: number of entries to expect, a hint, 1 or more.
// Returns the hash, which the caller releases with VLIBCSzHashFree, or null with errno EINVAL (size below 1) or ENOMEM.
VLIBCSzHash* VLIBCSzHashAlloc(int size);

// Stores copies of key and value, replacing an earlier value of the key.
// ppHash: address of the caller's handle. The call may replace the handle; read it anew afterwards, also on failure.
// Returns 0, or -1 with errno EINVAL (a null argument) or ENOMEM; the hash then holds what it held.
int VLIBCSzHashSetValue(VLIBCSzHash** ppHash, const char* szKey, const char* szValue);

// The value of the key, or null when the hash lacks it or an argument is null; errno is left as it is. The text is
// the hash's and lives until the key is set again or the hash is released.
const char* VLIBCSzHashGetValue(const VLIBCSzHash* pHash, const char* szKey);

// Releases the hash with its keys and values; null is allowed.
void VLIBCSzHashFree(VLIBCSzHash* pHash);

}  // extern "C"
