// Lets the operator's commands write before requests to the same SQLite file. SQLite by itself lets waiting processes
// sleep and try again, and a busy server leaves a command hardly a moment to find the file unlocked. The turns are
// locks of the file's folder, which cost the requests one system call each.
#pragma once

#include <string>

namespace store {

// Opens the turns of the SQLite file with that path. Without them, as on PostgreSQL, which has a fair queue, nobody
// waits. Call both functions while no thread writes.
void openOperatorTurns(const std::string& path);
void closeOperatorTurns();

// Lives while a thread begins a writing transaction; one thread of the process at a time. For the operator, that is
// without an acting account, the requests of all processes let it go first. For a request, the constructor waits for
// the operator, at most kOperatorPatience. Never throws: where the folder cannot be locked, nobody waits.
class OperatorTurn {
public:
    OperatorTurn() noexcept;
    ~OperatorTurn();
    OperatorTurn(const OperatorTurn&) = delete;
    OperatorTurn& operator=(const OperatorTurn&) = delete;
};

}  // namespace store
