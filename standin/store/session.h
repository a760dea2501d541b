// How a connection to a database is made and set up.
#pragma once

#include <memory>

#include <libpq-fe.h>
#include <soci/soci.h>

#include "standin/store/address.h"

namespace standin {

// Connects to the database and sets the connection up. The caller owns it, and uses it on one thread at a time. Any
// thread may call it. Throws soci::soci_error for what the database reports, Refusal EIO when it does not answer in
// time.
std::unique_ptr<soci::session> openSession(const Address& address);

// Whether statements wait for the locks of others, for five seconds as at first, or fail at once. Throws as statements
// do.
void setPatience(soci::session& sql, bool isPatient);

// Whether the connection has ended, or was never made; known from what came of its statements, without asking. SQLite's
// does not end by itself.
bool isLost(soci::session& sql);

// Has what the server sends unasked not go to standard error, as the client library has it by itself. The connection
// may be one that could not be made.
void silence(PGconn* pConnection);

// The socket of a connection to PostgreSQL, which stays its own; -1 when there is none.
int socketOf(soci::session& sql);

}  // namespace standin
