// Answers requests for methods that only read. Several requests for the same share one call of the method and its
// answer, as long as the store does not change; and answers have names, so that a client need not get one that it has.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/base/compression.h"
#include "host/base/digest.h"
#include "host/calls/answer_cache.h"
#include "host/calls/dispatch.h"

namespace host {

// A request for a method that only reads.
struct Read {
    const VELQ::APIMethod& row;
    const store::Account& account;  // the sender's
    const std::string& body;        // as the client sent it
    Coding coding;                  // which the client prefers
    const std::string& knownTags;   // the names of answers that the client has, as the header If-None-Match lists them
    bool mayWait;                   // for the answer to another request
};

// Any thread may use the object.
class ReadAnswers {
public:
    // Runs the method. Passes its answer, not compressed, to onSuccess while the method still runs, and returns
    // nothing; or returns the answer. It may throw.
    using Call = std::function<std::optional<Answer>(const EarlyAnswer& onSuccess)>;

    // Takes the answer of a call that still runs, which may be another request's. Takes nothing when another request's
    // answer cannot be shared; then the request is to be answered without waiting again. It must not throw.
    using Waiter = std::function<void(std::optional<Answer>)>;

    // maxKeptBytes: how much memory the kept answers may take; 0: none is kept, and each request calls the method.
    explicit ReadAnswers(size_t maxKeptBytes) : m_keepsAnswers(maxKeptBytes > 0), m_kept(maxKeptBytes) {}

    // Returns the answer to the request: a kept one, that of the call, or one with the status 304 and no text when the
    // client has it already. Returns nothing when the waiter got the answer before the call ended, or while another
    // request calls the same method; the waiter then gets its answer on that request's thread, perhaps before this
    // function returns. What read refers to may be destroyed as soon as the waiter is called. Throws what the call
    // throws, and as compressed().
    //
    // An answer to a request without a body has a name, unless the store changed meanwhile or its state is unknown.
    std::optional<Answer> answer(const Read& read, const Call& call, const Waiter& waiter);

    // How many requests got a kept answer, the answer of their own call, the answer of another request's call, or no
    // answer because the client has it already (304); and the memory of kept answers, with its limit.
    struct Counts {
        uint64_t kept, called, shared, notModified;
        size_t keptBytes, maxKeptBytes;
    };
    Counts counts() const;

private:
    struct WaitingRequest {
        Coding coding;
        Waiter waiter;
    };
    class SharedCall;

    std::optional<Answer> makeAnswer(const ReadKey& key, Coding coding, const Call& call, const Waiter& waiter,
                                     SharedCall* pSharedCall);
    Answer completeAnswer(const ReadKey& key, Coding coding, Answer plain, SharedCall* pSharedCall);
    Answer finishAnswer(const ReadKey& key, Coding coding, Answer plain);
    std::string etagOf(const ReadKey& key, Coding coding) const;

    // Part of each name. Another process may give other answers from the same state: it may have other modules.
    const std::string m_process = randomDigits();
    const bool m_keepsAnswers;
    AnswerCache m_kept;
    std::atomic<uint64_t> m_keptCount{0}, m_calledCount{0}, m_sharedCount{0}, m_notModifiedCount{0};
    std::mutex m_mutex;  // guards the map
    // The calls that run, each with the requests that wait for its answer.
    std::map<ReadKey, std::vector<WaitingRequest>> m_shared;
};

}  // namespace host
