// Loaded in front of a program: a host whose sockets hold next to nothing, as one with a small net.core.rmem_max and no
// privilege is.
#include <dlfcn.h>
#include <sys/socket.h>

#include <cerrno>

#ifndef SO_RCVBUFFORCE
#define SO_RCVBUFFORCE 33
#endif

extern "C" __attribute__((visibility("default"))) int setsockopt(int socket, int level, int name, const void* value,
                                                                 socklen_t size) noexcept {
    using function = int (*)(int, int, int, const void*, socklen_t);
    static const auto real = reinterpret_cast<function>(dlsym(RTLD_NEXT, "setsockopt"));
    if (level != SOL_SOCKET) return real(socket, level, name, value, size);
    if (name == SO_RCVBUFFORCE) {
        errno = EPERM;
        return -1;
    }
    constexpr int small = 32 << 10;
    if (name == SO_RCVBUF) return real(socket, level, name, &small, sizeof small);
    return real(socket, level, name, value, size);
}
