// Allocates a query hash and logs when that fails.
#include "frame/query_hash.h"

#include "frame/failure_log.h"

VLIBCSzHash* alloc_query_hash(int line)
{
    VLIBCSzHash* pHash = VLIBCSzHashAlloc(512);
    if (NULL == pHash) {
        log_malloc_hash(szModuleSource, line);
    }
    return pHash;
}
