// SPDX-License-Identifier: MIT
// no_threads: loaded into the daemon before its libraries (LD_PRELOAD), refuses every thread as long as the file exists
// that TV_NO_THREADS names.
#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace {

[[gnu::constructor]] void Prepare() { (void)unsetenv("LD_PRELOAD"); } // services may have as many as they like

} // namespace

extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                              void *argument) noexcept {
    const char *file = std::getenv("TV_NO_THREADS");
    if (file != nullptr && access(file, F_OK) == 0) return EAGAIN;
    return reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"))(thread, attributes, body,
                                                                                           argument);
}
