// Declares the core library: the last-error record, the string hash, the shared string and the terminal-debug switch.
#pragma once

#include <memory>
#include <string>

// An immutable text. Copies share one reference-counted buffer. Several threads may copy and destroy objects that share
// a buffer, but no thread may assign to an object while another one reads it.
class VLIBCString {
public:
    VLIBCString();                         // empty
    VLIBCString(const char* szText);       // a copy of the text up to its NUL; null counts as empty
    VLIBCString(const std::string& text);  // a copy of the text
    VLIBCString(const VLIBCString& other);
    VLIBCString& operator=(const VLIBCString& other);
    ~VLIBCString();

    // Returns the text, NUL-terminated, never null. It is valid until this object is assigned to or destroyed.
    const char* c_str() const;

    bool empty() const;

private:
    std::shared_ptr<const std::string> m_pText;  // null: empty
};

extern "C" {

typedef int BOOL;
enum { FALSE = 0, TRUE = 1 };

// If it is non-zero, modules repeat their failure lines on standard output. The process sets it before it calls a
// module; any thread may read it at any time.
extern int giTerminalDebug;

// --- The last-error record. Each thread has its own, which starts with code 0, file "" and line 0.

// Returns the code of the calling thread's last error.
int VLIBCErrGet(void);

// Returns the source file of the calling thread's last error, never null: the pointer that was passed to VLIBCErrSetEx.
const char* VLIBCErrorGetFile(void);

// Returns the source line of the calling thread's last error.
int VLIBCErrorGetLine(void);

// Sets the calling thread's record. szFile: must stay valid as long as the record may be read, such as a literal; null
// counts as "". line: counted from 1. Leaves errno unchanged.
void VLIBCErrSetEx(int code, const char* szFile, int line);

// --- The string hash, which maps text to text. Only one thread at a time may use a hash.

struct VLIBCSzHash;

// Allocates an empty hash. size: expected number of entries, 1 or more; only a hint.
// Returns the hash, which the caller releases with VLIBCSzHashFree, or null with errno EINVAL (size below 1) or ENOMEM.
VLIBCSzHash* VLIBCSzHashAlloc(int size);

// Stores copies of key and value, replacing an earlier value of the key.
// ppHash: address of the caller's pointer to the hash. The call may replace the pointer, even when it fails.
// Returns 0, or -1 with errno EINVAL (a null argument) or ENOMEM; the contents are then unchanged.
int VLIBCSzHashSetValue(VLIBCSzHash** ppHash, const char* szKey, const char* szValue);

// Returns the value of the key, or null if the hash lacks it or an argument is null. Leaves errno unchanged. The text
// belongs to the hash and is valid until the key is set again or the hash is released.
const char* VLIBCSzHashGetValue(const VLIBCSzHash* pHash, const char* szKey);

// Releases the hash with its keys and values; null is allowed.
void VLIBCSzHashFree(VLIBCSzHash* pHash);

}  // extern "C"
