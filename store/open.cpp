// Opens and closes the store.
#include "store/accounts/token_uses.h"
#include "store/base/errors.h"
#include "store/base/thread_state.h"
#include "store/db/database.h"
#include "store/history/pruning.h"
#include "store/records/schema.h"
#include "store/store.h"

void VELQZEMStoreOpen(const std::string& url, store::OpenMode mode, size_t connections)
{
    VELQZEMStoreClose();
    try {
        store::openDatabase(url, mode, connections);
        store::prepareSchema(mode);
    } catch (const store::NoStore&) {
        VELQZEMStoreClose();
        if (mode != store::OpenMode::ifThere) {
            throw;
        }
    } catch (...) {
        VELQZEMStoreClose();
        throw;
    }
}

void VELQZEMStoreClose()
{
    store::threadState().pSnapshot.reset();  // it belongs to the store that is being closed
    store::stopPruning();
    store::closeTokenUses();
    store::closeDatabase();
}
