// Preloaded into a program, lets it find the lists of a network mount in user attributes: what it
// asks for as system.nfs4_acl is user.nfs4_acl.
#include <dlfcn.h>
#include <sys/types.h>

#include <cstring>
#include <string>

namespace {

std::string stored(const char* name) {
    constexpr const char* prefix = "system.nfs4_acl";
    return std::strncmp(name, prefix, std::strlen(prefix)) == 0 ? std::string("user") + (name + 6)
                                                                : name;
}

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

#pragma GCC visibility push(default)

ssize_t getxattr(const char* path, const char* name, void* value, size_t size) noexcept {
    return next<ssize_t(const char*, const char*, void*, size_t)>("getxattr")(
        path, stored(name).c_str(), value, size);
}

int setxattr(const char* path, const char* name, const void* value, size_t size,
             int flags) noexcept {
    return next<int(const char*, const char*, const void*, size_t, int)>("setxattr")(
        path, stored(name).c_str(), value, size, flags);
}

#pragma GCC visibility pop

}  // extern "C"
