// Loads and changes servers. Only a fleet file creates or deletes them.
#include "store/history/recorder.h"
#include "store/records/rows.h"
#include "store/rules/change.h"
#include "store/rules/checks.h"

using namespace store;

int VELQZEMKxGet(int64_t id, _tag_velq_zem_kx_* pKx)
{
    return readRecord(id, pKx);
}

int VELQZEMKxSet(_tag_velq_zem_kx_* pKx)
{
    return commitChange(pKx, [](soci::session& sql, Server& server, const CheckedLinks& checked) {
        const Rights rights(sql);
        rights.requireNode(Kind<Server>::kType, server.id);
        Server stored;
        load(sql, server.id, stored);
        const LinkChange links = checkReplacement(sql, rights, server, checked, stored);
        if (hasSameFields(server, stored)) {
            return std::string();
        }
        const std::string changed = replace(sql, rights, server, stored);
        writeLinkChange(sql, Kind<Server>::kType, server.id, links);
        return changeLine(rights, Kind<Server>::kName, server.id, changed);
    });
}
