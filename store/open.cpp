// Opening and closing the store: the database, its schema, and what the calling thread still keeps of another store.
#include "store/base/errors.h"
#include "store/db/database.h"
#include "store/nodes/listing_snapshot.h"
#include "store/records/schema.h"
#include "store/store.h"

void VELQZEMStoreOpen(const std::string& url, store::OpenMode mode, size_t connections)
{
    VELQZEMStoreClose();
    store::explained([&] {
        try {
            store::openDatabase(url, mode, connections);
            store::prepareSchema(mode);
        } catch (const store::NoStore&) {
            VELQZEMStoreClose();
            mode == store::OpenMode::ifThere ? void() : throw;
        } catch (...) {
            VELQZEMStoreClose();
            throw;
        }
    });
}

void VELQZEMStoreClose()
{
    store::dropSnapshot();
    store::closeDatabase();
}
