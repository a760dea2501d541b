// Answers requests for methods that only read, and names their answers.
#include "host/calls/read_answers.h"

#include <utility>

namespace host {

namespace {

Answer notModified(std::string etag)
{
    static const auto kNoText = std::make_shared<const std::vector<std::string>>();
    return {.status = 304, .code = 304, .text = kNoText, .etag = std::move(etag)};
}

}  // namespace

Answer ReadAnswers::answer(const Read& read, const Call& call) const
{
    const std::string state = store::storeState();
    if (state.empty() || !read.body.empty()) {
        return call();
    }
    std::string etag = etagOf(read, state);
    if (read.knownTags.find(etag) != std::string::npos) {
        return notModified(std::move(etag));
    }
    Answer answer = call();
    // A change while the method ran may be in the answer or not.
    if (answer.succeeded && store::storeState() == state) {
        answer.etag = std::move(etag);
    }
    return answer;
}

std::string ReadAnswers::etagOf(const Read& read, const std::string& state) const
{
    const std::string method =
        std::string(read.row.szApi) + '/' + std::to_string(read.row.version) + '/' + read.row.szMethod;
    return '"' + digestOf(m_process + '/' + std::to_string(read.account.uid) + '/' + method + '/' + state) + '"';
}

}  // namespace host
