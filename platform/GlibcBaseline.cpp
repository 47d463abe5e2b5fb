// The C library the library asks for stops at GLIBC_2.28, so that it loads on
// every glibc distribution that .NET supports (RHEL 8 has 2.28), though it is
// built on a newer one. The names that the build machine's C library gives a
// newer version are defined here, hidden, and forward to their oldest version,
// which every newer C library keeps; the static C++ runtime and the regular
// expression engine bind to these definitions too. What has no old version
// (the C++ runtime's single-thread flag, its random source, the unwinder's
// object lookup) is done here without the C library's help.
//
// No system header that declares these names is included: the definitions
// would clash with their declarations.
#include <cstddef>
#include <cstdint>

#if defined(__x86_64__)
#define TARN_GLIBC_BASE "GLIBC_2.2.5"
// The layout of struct stat that the headers give, as the __xstat family numbers it.
constexpr int kStatLayout = 1;
#elif defined(__aarch64__)
#define TARN_GLIBC_BASE "GLIBC_2.17"
constexpr int kStatLayout = 0;
#endif

#define TARN_HIDDEN __attribute__((visibility("hidden")))
// Binds tarn_old_<name> to <name>@<version> of the C library.
#define TARN_OLD_VERSION(name, version) __asm__(".symver tarn_old_" #name "," #name "@" version)

extern "C" {

int tarn_old_pthread_create(void*, const void*, void* (*)(void*), void*);
int tarn_old_pthread_join(unsigned long, void**);
int tarn_old_pthread_once(void*, void (*)());
int tarn_old___pthread_key_create(void*, void (*)(void*));
int tarn_old_pthread_getcpuclockid(unsigned long, void*);
int tarn_old_pthread_mutexattr_init(void*);
int tarn_old_pthread_mutexattr_destroy(void*);
int tarn_old_pthread_mutexattr_settype(void*, int);
int tarn_old_pthread_rwlock_init(void*, const void*);
int tarn_old_pthread_rwlock_destroy(void*);
int tarn_old_pthread_rwlock_rdlock(void*);
int tarn_old_pthread_rwlock_wrlock(void*);
int tarn_old_pthread_rwlock_unlock(void*);
void* tarn_old_dlopen(const char*, int);
void* tarn_old_dlsym(void*, const char*);
int tarn_old_dlclose(void*);
char* tarn_old_dlerror();
int tarn_old___libc_start_main(int (*)(int, char**, char**), int, char**, void (*)(), void (*)(), void (*)(), void*);
int tarn_old___lxstat(int, const char*, void*);
int tarn_old___xstat(int, const char*, void*);
int tarn_old___fxstat(int, int, void*);
long tarn_old_getrandom(void*, size_t, unsigned int);

TARN_OLD_VERSION(pthread_create, TARN_GLIBC_BASE);
TARN_OLD_VERSION(pthread_join, TARN_GLIBC_BASE);
TARN_OLD_VERSION(pthread_once, TARN_GLIBC_BASE);
TARN_OLD_VERSION(__pthread_key_create, TARN_GLIBC_BASE);
TARN_OLD_VERSION(pthread_getcpuclockid, TARN_GLIBC_BASE);
TARN_OLD_VERSION(pthread_mutexattr_init, TARN_GLIBC_BASE);
TARN_OLD_VERSION(pthread_mutexattr_destroy, TARN_GLIBC_BASE);
TARN_OLD_VERSION(pthread_mutexattr_settype, TARN_GLIBC_BASE);
TARN_OLD_VERSION(pthread_rwlock_init, TARN_GLIBC_BASE);
TARN_OLD_VERSION(pthread_rwlock_destroy, TARN_GLIBC_BASE);
TARN_OLD_VERSION(pthread_rwlock_rdlock, TARN_GLIBC_BASE);
TARN_OLD_VERSION(pthread_rwlock_wrlock, TARN_GLIBC_BASE);
TARN_OLD_VERSION(pthread_rwlock_unlock, TARN_GLIBC_BASE);
TARN_OLD_VERSION(dlopen, TARN_GLIBC_BASE);
TARN_OLD_VERSION(dlsym, TARN_GLIBC_BASE);
TARN_OLD_VERSION(dlclose, TARN_GLIBC_BASE);
TARN_OLD_VERSION(dlerror, TARN_GLIBC_BASE);
TARN_OLD_VERSION(__libc_start_main, TARN_GLIBC_BASE);
TARN_OLD_VERSION(__lxstat, TARN_GLIBC_BASE);
TARN_OLD_VERSION(__xstat, TARN_GLIBC_BASE);
TARN_OLD_VERSION(__fxstat, TARN_GLIBC_BASE);
TARN_OLD_VERSION(getrandom, "GLIBC_2.25");

TARN_HIDDEN int pthread_create(void* thread, const void* attributes, void* (*start)(void*), void* argument) {
    return tarn_old_pthread_create(thread, attributes, start, argument);
}
TARN_HIDDEN int pthread_join(unsigned long thread, void** result) { return tarn_old_pthread_join(thread, result); }
TARN_HIDDEN int pthread_once(void* control, void (*routine)()) { return tarn_old_pthread_once(control, routine); }
TARN_HIDDEN int __pthread_key_create(void* key, void (*destructor)(void*)) {
    return tarn_old___pthread_key_create(key, destructor);
}
TARN_HIDDEN int pthread_getcpuclockid(unsigned long thread, void* clock) {
    return tarn_old_pthread_getcpuclockid(thread, clock);
}
TARN_HIDDEN int pthread_mutexattr_init(void* attributes) { return tarn_old_pthread_mutexattr_init(attributes); }
TARN_HIDDEN int pthread_mutexattr_destroy(void* attributes) { return tarn_old_pthread_mutexattr_destroy(attributes); }
TARN_HIDDEN int pthread_mutexattr_settype(void* attributes, int kind) {
    return tarn_old_pthread_mutexattr_settype(attributes, kind);
}
TARN_HIDDEN int pthread_rwlock_init(void* lock, const void* attributes) {
    return tarn_old_pthread_rwlock_init(lock, attributes);
}
TARN_HIDDEN int pthread_rwlock_destroy(void* lock) { return tarn_old_pthread_rwlock_destroy(lock); }
TARN_HIDDEN int pthread_rwlock_rdlock(void* lock) { return tarn_old_pthread_rwlock_rdlock(lock); }
TARN_HIDDEN int pthread_rwlock_wrlock(void* lock) { return tarn_old_pthread_rwlock_wrlock(lock); }
TARN_HIDDEN int pthread_rwlock_unlock(void* lock) { return tarn_old_pthread_rwlock_unlock(lock); }
TARN_HIDDEN void* dlopen(const char* path, int mode) { return tarn_old_dlopen(path, mode); }
TARN_HIDDEN void* dlsym(void* library, const char* name) { return tarn_old_dlsym(library, name); }
TARN_HIDDEN int dlclose(void* library) { return tarn_old_dlclose(library); }
TARN_HIDDEN char* dlerror() { return tarn_old_dlerror(); }
// The start of a program of ours (the tools), as the startup files call it.
TARN_HIDDEN int __libc_start_main(int (*main)(int, char**, char**), int count, char** arguments, void (*init)(),
                                  void (*fini)(), void (*loaderFini)(), void* stackEnd) {
    return tarn_old___libc_start_main(main, count, arguments, init, fini, loaderFini, stackEnd);
}

// Before 2.33 stat and fstat were inline calls of the versioned __xstat family.
TARN_HIDDEN int stat(const char* path, void* facts) { return tarn_old___xstat(kStatLayout, path, facts); }
TARN_HIDDEN int fstat(int descriptor, void* facts) { return tarn_old___fxstat(kStatLayout, descriptor, facts); }
TARN_HIDDEN int fstat64(int descriptor, void* facts) { return tarn_old___fxstat(kStatLayout, descriptor, facts); }
TARN_HIDDEN int lstat(const char* path, void* facts) { return tarn_old___lxstat(kStatLayout, path, facts); }

// Never "single-threaded": the C++ runtime then always takes its atomic paths.
TARN_HIDDEN char __libc_single_threaded = 0;

// The C++ runtime's random source (std::random_device).
TARN_HIDDEN uint32_t arc4random() {
    uint32_t value = 0;
    // Every kernel that .NET supports has getrandom; nothing of ours draws on
    // this source, only the C++ runtime's random_device could.
    (void)tarn_old_getrandom(&value, sizeof(value), 0);
    return value;
}

}  // extern "C"
