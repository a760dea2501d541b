// Opening and closing the store: the database, its schema, and what the calling thread still keeps of another store.
#include "standin/store/database.h"
#include "standin/store/errors.h"
#include "standin/store/schema.h"
#include "standin/store/snapshot.h"
#include "standin/store/store.h"

void VELQZEMStoreOpen(const std::string& url, standin::OpenMode mode, size_t connections)
{
    VELQZEMStoreClose();
    standin::explained([&] {
        try {
            standin::openDatabase(url, mode, connections);
            standin::prepareSchema(mode);
        } catch (const standin::NoStore&) {
            VELQZEMStoreClose();
            mode == standin::OpenMode::ifThere ? void() : throw;
        } catch (...) {
            VELQZEMStoreClose();
            throw;
        }
    });
}

void VELQZEMStoreClose()
{
    standin::dropSnapshot();
    standin::closeDatabase();
}
