// Answers requests for methods that only read, and names their answers, so that a client which has one already need not
// get it again.
#pragma once

#include <functional>
#include <string>

#include "host/base/digest.h"
#include "host/calls/dispatch.h"

namespace host {

// A request for a method that only reads.
struct Read {
    const VELQ::APIMethod& row;
    const store::Account& account;  // the sender's
    const std::string& body;        // as the client sent it
    const std::string& knownTags;   // the names of answers that the client has, as the header If-None-Match lists them
};

// Any thread may use the object.
class ReadAnswers {
public:
    using Call = std::function<Answer()>;

    // Returns the answer to the request: that of call, which runs the method, or one with the status 304 and no text
    // when the client has the answer already. An answer to a request without a body has a name, unless the store
    // changed meanwhile or cannot tell.
    Answer answer(const Read& read, const Call& call) const;

private:
    std::string etagOf(const Read& read, const std::string& state) const;

    // Part of each name. Another process may give other answers from the same state: it may have other modules.
    const std::string m_process = randomDigits();
};

}  // namespace host
