// Replaces the C library's sendmsg(), because the HTTP library sends the head of an answer twice when it refuses a
// request by itself for its Content-Length.
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <string_view>

namespace {

// Returns the length of the head if the piece consists of the same head twice, else 0.
size_t repeatedHead(const iovec& piece)
{
    const std::string_view text(static_cast<const char*>(piece.iov_base), piece.iov_len);
    const std::string_view head = text.substr(0, text.size() / 2);
    const bool isRepeated =
        head.starts_with("HTTP/1.") && head.ends_with("\r\n\r\n") && text.substr(head.size()) == head;
    return isRepeated ? head.size() : 0;
}

}  // namespace

extern "C" [[gnu::visibility("default")]] ssize_t sendmsg(int fd, const msghdr* pMessage, int flags)
{
    iovec pieces[2];
    const size_t repeated = pMessage->msg_iovlen == std::size(pieces) ? repeatedHead(pMessage->msg_iov[0]) : 0;
    if (repeated == 0) {
        return syscall(SYS_sendmsg, fd, pMessage, flags);
    }
    std::copy_n(pMessage->msg_iov, std::size(pieces), pieces);
    pieces[0].iov_len = repeated;
    msghdr message = *pMessage;
    message.msg_iov = pieces;
    const ssize_t sent = syscall(SYS_sendmsg, fd, &message, flags);
    return sent < 0 ? sent : sent + static_cast<ssize_t>(repeated);
}
