#include "modules/stills/oiio/Wire.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace stills::oiio {

namespace {

constexpr int kMostDescriptors = 4;

union ControlSpace {
    char bytes[CMSG_SPACE(sizeof(int) * kMostDescriptors)];
    cmsghdr align;
};

int MillisecondsUntil(std::chrono::steady_clock::time_point end) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
    return left > 0 ? int(left) : 0;
}

// True when the socket has something to say, or has ended.
bool WaitFor(int socket, int milliseconds) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    pollfd wait = {socket, POLLIN, 0};
    for (;;) {
        int ready = poll(&wait, 1, milliseconds < 0 ? -1 : MillisecondsUntil(end));
        if (ready >= 0) return ready > 0;
        if (errno != EINTR) return true;   // recvmsg tells what is wrong
    }
}

// Takes the descriptors of a message; those there is no place for are closed.
void TakeDescriptors(msghdr& header, int* descriptors, int most) {
    int taken = 0;
    for (cmsghdr* part = CMSG_FIRSTHDR(&header); part; part = CMSG_NXTHDR(&header, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) continue;
        size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int descriptor;
            std::memcpy(&descriptor, CMSG_DATA(part) + i * sizeof(int), sizeof(int));
            if (taken < most)
                descriptors[taken++] = descriptor;
            else
                close(descriptor);
        }
    }
}

}   // namespace

bool Send(int socket, const void* message, std::size_t size, std::initializer_list<int> descriptors) {
    ControlSpace control = {};
    iovec body = {const_cast<void*>(message), size};
    msghdr header = {};
    header.msg_iov = &body;
    header.msg_iovlen = 1;
    if (descriptors.size() > 0) {
        header.msg_control = control.bytes;
        header.msg_controllen = CMSG_SPACE(sizeof(int) * descriptors.size());
        cmsghdr* part = CMSG_FIRSTHDR(&header);
        part->cmsg_level = SOL_SOCKET;
        part->cmsg_type = SCM_RIGHTS;
        part->cmsg_len = CMSG_LEN(sizeof(int) * descriptors.size());
        std::memcpy(CMSG_DATA(part), descriptors.begin(), sizeof(int) * descriptors.size());
    }
    ssize_t sent;
    do sent = sendmsg(socket, &header, MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    return sent == ssize_t(size);
}

int Receive(int socket, void* message, std::size_t size, int* descriptors, int most, int milliseconds) {
    for (int i = 0; i < most; ++i) descriptors[i] = -1;
    if (milliseconds >= 0 && !WaitFor(socket, milliseconds)) return -1;
    ControlSpace control = {};
    iovec body = {message, size};
    msghdr header = {};
    header.msg_iov = &body;
    header.msg_iovlen = 1;
    header.msg_control = control.bytes;
    header.msg_controllen = sizeof control.bytes;
    ssize_t got;
    do got = recvmsg(socket, &header, MSG_CMSG_CLOEXEC);
    while (got < 0 && errno == EINTR);
    if (got <= 0) return 0;
    TakeDescriptors(header, descriptors, most);
    return got == ssize_t(size) ? 1 : 0;
}

void CopyText(char* field, std::size_t size, const char* text) { std::snprintf(field, size, "%s", text); }

}   // namespace stills::oiio
