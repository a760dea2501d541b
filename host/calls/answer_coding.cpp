// Compresses answers.
//
// The length of a compressed answer can betray a text to somebody who chooses another text of the same answer, has the
// answer sent again and again, and sees its length on the network. It betrays no token, because no answer contains one.
// A page of another origin cannot have answers sent: browsers never add the token by themselves, and the server lets no
// other origin send it. What remains is an account that manages a part of the tree and listens beside an administrator:
// for each guess at a name or setting in another part it can change a description and wait for the next fetch. Each of
// these changes is in the log. Names are not that secret; the operator keeps passwords out of the settings.
#include "host/calls/answer_coding.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace host {

namespace {

bool isShort(const std::vector<std::string>& parts)
{
    size_t bytes = 0;
    for (const std::string& part : parts) {
        bytes += part.size();
    }
    return bytes < kMinBytesToCompress;
}

}  // namespace

Answer inCoding(Answer answer, Coding coding)
{
    if (coding == Coding::identity || isShort(*answer.text)) {
        return answer;
    }
    answer.text = makeText({compressed(coding, *answer.text)});
    answer.coding = coding;
    return answer;
}

}  // namespace host
