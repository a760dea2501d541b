// errno for whatever goes wrong in the store, the errors of the databases included.
#include "standin/store/errors.h"

#include <cstring>
#include <new>
#include <string>

#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>

namespace standin {
namespace {

int errnoOfDatabase(const soci::soci_error& error)
{
    if (const auto* pSqlite = dynamic_cast<const soci::sqlite3_soci_error*>(&error)) {
        const int primary = pSqlite->result() & 0xff;  // the bits above tell variants of the code apart
        return primary == SQLITE_BUSY || primary == SQLITE_LOCKED ? EBUSY : primary == SQLITE_NOMEM ? ENOMEM : EIO;
    }
    return error.get_error_category() == soci::soci_error::unknown_transaction_state ? EBUSY : EIO;
}

}  // namespace

Refusal::Refusal(int errnoValue) : std::runtime_error(std::strerror(errnoValue)), code(errnoValue) {}

BadInput::BadInput(std::string_view place, std::string_view why)
    : std::runtime_error(std::string(place) + ": " + std::string(why))
{
}

void require(bool condition, int errnoValue)
{
    if (!condition) {
        throw Refusal(errnoValue);
    }
}

void demand(bool condition, std::string_view place, std::string_view why)
{
    if (!condition) {
        throw BadInput(place, why);
    }
}

int errnoOfException()
{
    try {
        throw;
    } catch (const Refusal& refusal) {
        return refusal.code;
    } catch (const BadInput&) {
        return EINVAL;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    } catch (const soci::soci_error& error) {
        return errnoOfDatabase(error);
    } catch (...) {
        return EIO;
    }
}

}  // namespace standin
