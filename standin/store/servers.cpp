// Servers come with a fleet; from then on they are loaded and changed, neither created nor deleted.
#include "standin/store/checks.h"
#include "standin/store/rows.h"

using namespace standin;

int VELQZEMKxGet(int64_t id, _tag_velq_zem_kx_* pKx)
{
    return readRecord(id, pKx);
}

int VELQZEMKxSet(_tag_velq_zem_kx_* pKx)
{
    return changeRecord(pKx, [](soci::session& sql, Server& server) {
        Server stored;
        load(sql, server.id, stored);
        checkReplacement(sql, server, stored);
        replace(sql, server);
    });
}
