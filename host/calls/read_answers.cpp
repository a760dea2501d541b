// Answers requests for methods that only read.
//
// An answer belongs to the state of the store that was read before the call and again when the answer was complete, and
// only if both are equal: a change while the method ran may be in the answer or not.
#include "host/calls/read_answers.h"

#include <exception>
#include <memory>
#include <utility>

#include "host/calls/answer_coding.h"

namespace host {

namespace {

Answer notModified(std::string etag)
{
    static const auto kNoText = std::make_shared<const std::vector<std::string>>();
    return {.status = 304, .code = 304, .text = kNoText, .etag = std::move(etag)};
}

}  // namespace

// A call for whose answer other requests wait. At its end it releases those that have no answer.
class ReadAnswers::SharedCall {
public:
    // The caller has added the key to owner.m_shared. key: outlives the object.
    SharedCall(ReadAnswers& owner, const ReadKey& key) : m_owner(owner), m_key(key) {}
    SharedCall(const SharedCall&) = delete;
    ~SharedCall()
    {
        answerWaiting([](Coding) { return std::nullopt; });
    }

    // Answers the requests that wait, until none does; others then no longer wait for this call.
    void answerWaiting(const std::function<std::optional<Answer>(Coding)>& answerIn) noexcept
    {
        for (std::vector<WaitingRequest> requests; takeWaiting(requests); requests.clear()) {
            for (const WaitingRequest& request : requests) {
                std::optional<Answer> answer;
                try {
                    answer = answerIn(request.coding);
                } catch (const std::exception&) {  // no memory; the request tries by itself
                    answer.reset();
                }
                m_owner.m_sharedCount += answer ? 1 : 0;
                request.waiter(std::move(answer));
            }
        }
    }

private:
    // Takes the requests that wait. Ends the call and returns false when there is none.
    bool takeWaiting(std::vector<WaitingRequest>& requests)
    {
        const std::lock_guard lock(m_owner.m_mutex);
        if (m_isOver) {
            return false;
        }
        const auto call = m_owner.m_shared.find(m_key);
        m_isOver = call->second.empty();
        if (m_isOver) {
            m_owner.m_shared.erase(call);
            return false;
        }
        requests.swap(call->second);
        return true;
    }

    ReadAnswers& m_owner;
    const ReadKey& m_key;
    bool m_isOver = false;
};

std::optional<Answer> ReadAnswers::answer(const Read& read, const Call& call, const Waiter& waiter)
{
    const Coding coding = read.coding;  // the call may outlive what read refers to
    const ReadKey key{read.account.uid, &read.row, read.body, store::storeState()};
    if (key.state.empty()) {
        return makeAnswer(key, coding, call, waiter, nullptr);
    }
    if (const std::string etag = etagOf(key, coding); !etag.empty() && read.knownTags.find(etag) != etag.npos) {
        ++m_notModifiedCount;
        return notModified(etag);
    }
    if (!m_keepsAnswers) {
        return makeAnswer(key, coding, call, waiter, nullptr);
    }
    if (auto kept = m_kept.find(key, coding)) {
        ++m_keptCount;
        return kept;
    }
    bool isFirst = false;
    {
        const std::lock_guard lock(m_mutex);
        const auto shared = m_shared.try_emplace(key);
        isFirst = shared.second;
        if (!isFirst && read.mayWait) {
            shared.first->second.push_back({coding, waiter});
            return std::nullopt;
        }
    }
    if (!isFirst) {
        return makeAnswer(key, coding, call, waiter, nullptr);
    }
    SharedCall sharedCall(*this, key);
    return makeAnswer(key, coding, call, waiter, &sharedCall);
}

std::optional<Answer> ReadAnswers::makeAnswer(const ReadKey& key, Coding coding, const Call& call, const Waiter& waiter,
                                              SharedCall* pSharedCall)
{
    std::optional<Answer> plain;
    if (!key.state.empty()) {
        plain = m_kept.find(key, Coding::identity);
    }
    ++(plain ? m_keptCount : m_calledCount);
    if (!plain) {
        plain = call([&](Answer early) { waiter(completeAnswer(key, coding, std::move(early), pSharedCall)); });
    }
    return plain ? std::optional(completeAnswer(key, coding, *std::move(plain), pSharedCall)) : std::nullopt;
}

ReadAnswers::Counts ReadAnswers::counts() const
{
    return {m_keptCount, m_calledCount, m_sharedCount, m_notModifiedCount, m_kept.bytes(), m_kept.maxBytes()};
}

// Returns the answer in the coding; names and keeps it, and passes it to the requests that wait, if it may be shared.
Answer ReadAnswers::completeAnswer(const ReadKey& key, Coding coding, Answer plain, SharedCall* pSharedCall)
{
    if (!plain.succeeded || key.state.empty() || store::storeState() != key.state) {
        return inCoding(std::move(plain), coding);
    }
    std::map<Coding, Answer> answers{{Coding::identity, finishAnswer(key, Coding::identity, std::move(plain))}};
    const auto answerIn = [&](Coding wanted) {
        const auto known = answers.find(wanted);
        return known != answers.end()
                   ? known->second
                   : answers.emplace(wanted, finishAnswer(key, wanted, answers.begin()->second)).first->second;
    };
    Answer answer = answerIn(coding);
    if (pSharedCall != nullptr) {
        pSharedCall->answerWaiting(answerIn);
    }
    return answer;
}

// Returns the answer in the coding, with its name, and keeps it.
Answer ReadAnswers::finishAnswer(const ReadKey& key, Coding coding, Answer plain)
{
    Answer answer = inCoding(std::move(plain), coding);
    answer.etag = etagOf(key, coding);
    m_kept.keep(key, coding, answer);
    return answer;
}

// Returns the name of the answer, in the quotes of the header; an empty text for a request with a body, which has none.
std::string ReadAnswers::etagOf(const ReadKey& key, Coding coding) const
{
    if (!key.body.empty()) {
        return "";
    }
    std::string text = m_process + '/' + key.pRow->szApi + '/' + std::to_string(key.pRow->version) + '/';
    text += std::string(key.pRow->szMethod) + '/' + std::to_string(key.uid) + '/' + nameOf(coding) + '/' + key.state;
    return '"' + digestOf(text) + '"';
}

}  // namespace host
