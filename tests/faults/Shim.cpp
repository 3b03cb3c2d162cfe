// Preloaded into the unmodified recorder: makes chosen calls into the system fail, counts all of them.
//
// Owns nothing but its counts.  The driver (shim.py) shares a page with it, named by FAULT_CONTROL, and writes there
// which calls are to fail, where and how often.
// Never changes a call that is not chosen.  Threads: any; the page is used through atomics alone.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}

namespace {

// ---- The shared page; shim.py has the same lists in the same order ----

// clang-format off
enum Call : uint32_t {
    k_open, k_pread, k_pwrite, k_close, k_access, k_fcntl, k_fstat, k_statfs, k_fsync, k_fopen, k_fread, k_rename,
    k_popen, k_shmget, k_shmat, k_shmctl, k_msgget, k_msgsnd, k_msgrcv, k_msgctl, k_semget, k_mmap,
    k_malloc, k_pthread_create, kCallCount
};
enum Place : uint32_t {
    k_elsewhere, k_device, k_index, k_record_file, k_event_file,  // a file as a whole
    k_system_head, k_file_head, k_section_head,                   // in the index
    k_stream, k_key_frame,                                        // in a record file
    k_event_head, k_event,                                        // in the event file
    kPlaceCount
};
// clang-format on

// Faults beside the errno values.
constexpr int32_t kShort = -1;  // half of the transfer, at least a byte
constexpr int32_t kTorn = -2;   // half of the transfer, then EIO
constexpr int32_t kKill = -3;   // the process dies in front of the call

struct Control {
    std::atomic<uint32_t> armed;   //   0: 1 while calls are to fail
    std::atomic<uint32_t> calls;   //   4: which, a bit for each Call
    std::atomic<uint32_t> places;  //   8: where, a bit for each Place
    std::atomic<int32_t> fault;    //  12: errno, or one of the above
    std::atomic<uint32_t> skip;    //  16: so many matching calls pass first
    std::atomic<uint32_t> count;   //  20: then so many fail; 0: all until disarmed
    std::atomic<uint32_t> matched;
    std::atomic<uint32_t> injected;
    std::atomic<uint32_t> seen[kCallCount][kPlaceCount];
};
static_assert(sizeof(Control) == 32 + 4 * kCallCount * kPlaceCount);

Control* control = nullptr;

template <class Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}
#define NEXT(name) static const auto next = Next<decltype(&::name)>(#name)

__attribute__((constructor)) void Attach() {
    const char* path = getenv("FAULT_CONTROL");
    if (path == nullptr) return;
    const int page = open(path, O_RDWR | O_CLOEXEC);
    void* shared = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, page, 0);
    if (page < 0 || shared == MAP_FAILED) {
        perror("fault shim");
        _exit(99);
    }
    close(page);
    unsetenv("LD_PRELOAD");  // the recorder's children are not the recorder
    control = static_cast<Control*>(shared);
}

// ---- Which file a descriptor is, which place an offset ----

Place FileAt(std::string_view path) {
    constexpr std::string_view kStore = "/var/etc/sdcard/";
    if (path == "/dev/mmcblk0p1" || path.ends_with("/card.img")) return k_device;  // its name, and the file behind it
    if (!path.starts_with(kStore)) return k_elsewhere;
    path.remove_prefix(kStore.size());
    return path.starts_with("index") ? k_index : path.starts_with("event") ? k_event_file : k_record_file;
}

Place FileAt(int fd) {
    char link[32], path[256];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t length = readlink(link, path, sizeof path);
    return length < 0 ? k_elsewhere : FileAt({path, static_cast<size_t>(length)});
}

Place PlaceAt(int fd, off64_t offset) {
    switch (FileAt(fd)) {
        case k_index:
            return offset < 1024 ? k_system_head : offset < 131072 ? k_file_head : k_section_head;
        case k_record_file:
            return offset < 0x0FC00000 ? k_stream : k_key_frame;
        case k_event_file:
            return offset < 131072 * 8 ? k_event_head : k_event;
        default:
            return k_elsewhere;
    }
}

// ---- The decision ----

// The fault that this call is to meet; 0: none.
int32_t FaultFor(Call call, Place place) {
    if (control == nullptr) return 0;
    ++control->seen[call][place];
    if (control->armed.load() == 0 || (control->calls >> call & 1) == 0 || (control->places >> place & 1) == 0)
        return 0;
    const uint32_t number = control->matched++;
    const uint32_t skip = control->skip, count = control->count;
    if (number < skip || (count != 0 && number >= skip + count)) return 0;
    const int32_t fault = control->fault;
    ++control->injected;
    if (fault == kKill) kill(getpid(), SIGKILL);
    return fault;
}

// True with errno set when the call is to fail.  Half transfers make sense of reads and writes alone.
bool Fails(Call call, Place place = k_elsewhere) {
    const int32_t fault = FaultFor(call, place);
    if (fault == 0) return false;
    errno = fault > 0 ? fault : EIO;
    return true;
}

template <class Transfer>
ssize_t TransferOr(int32_t fault, size_t length, Transfer transfer) {
    if (fault == 0) return transfer(length);
    if (fault == kShort) return transfer(std::max<size_t>(length / 2, 1));
    if (fault == kTorn) transfer(length / 2);
    errno = fault > 0 ? fault : EIO;
    return -1;
}

}  // namespace

// ---- The calls ----

extern "C" {

// The next argument of a call that takes a variable number of them; one that was not passed is not looked at.
#define LAST_ARGUMENT(type, name, before)      \
    va_list arguments;                         \
    va_start(arguments, before);               \
    const auto name = va_arg(arguments, type); \
    va_end(arguments)

int open64(const char* path, int flags, ...) {
    LAST_ARGUMENT(mode_t, mode, flags);
    NEXT(open64);
    return Fails(k_open, FileAt(path)) ? -1 : next(path, flags, mode);
}
int open(const char* path, int flags, ...) __attribute__((alias("open64")));  // one call on a 64-bit host

int close(int fd) {
    NEXT(close);
    const bool fails = Fails(k_close, FileAt(fd));
    const int error = errno;
    const int result = next(fd);  // a descriptor is gone even when closing it reports an error
    if (!fails) return result;
    errno = error;
    return -1;
}

ssize_t pread64(int fd, void* buffer, size_t length, off64_t offset) {
    NEXT(pread64);
    return TransferOr(FaultFor(k_pread, PlaceAt(fd, offset)), length,
                      [&](size_t part) { return next(fd, buffer, part, offset); });
}

ssize_t pwrite64(int fd, const void* buffer, size_t length, off64_t offset) {
    NEXT(pwrite64);
    return TransferOr(FaultFor(k_pwrite, PlaceAt(fd, offset)), length,
                      [&](size_t part) { return next(fd, buffer, part, offset); });
}

int fcntl(int fd, int command, ...) {
    LAST_ARGUMENT(void*, argument, command);
    NEXT(fcntl);
    return Fails(k_fcntl, FileAt(fd)) ? -1 : next(fd, command, argument);
}

#define FORWARD(result, name, call, place, failure, parameters, arguments) \
    result name parameters {                                               \
        NEXT(name);                                                        \
        return Fails(k_##call, place) ? (failure) : next arguments;        \
    }

FORWARD(int, access, access, FileAt(path), -1, (const char* path, int mode), (path, mode))
FORWARD(int, fstat64, fstat, FileAt(fd), -1, (int fd, struct stat64* status), (fd, status))
FORWARD(int, stat64, fstat, FileAt(path), -1, (const char* path, struct stat64* status), (path, status))
FORWARD(int, fstatfs64, statfs, FileAt(fd), -1, (int fd, struct statfs64* status), (fd, status))
FORWARD(int, fdatasync, fsync, FileAt(fd), -1, (int fd), (fd))
FORWARD(int, sync_file_range, fsync, FileAt(fd), -1, (int fd, off64_t from, off64_t length, unsigned int flags),
        (fd, from, length, flags))
FORWARD(FILE*, fopen, fopen, FileAt(path), nullptr, (const char* path, const char* mode), (path, mode))
FORWARD(size_t, fread, fread, k_elsewhere, 0, (void* buffer, size_t size, size_t count, FILE* file),
        (buffer, size, count, file))
FORWARD(int, rename, rename, FileAt(from), -1, (const char* from, const char* to), (from, to))
FORWARD(FILE*, popen, popen, k_elsewhere, nullptr, (const char* command, const char* mode), (command, mode))
FORWARD(int, shmget, shmget, k_elsewhere, -1, (key_t key, size_t size, int flags), (key, size, flags))
FORWARD(void*, shmat, shmat, k_elsewhere, reinterpret_cast<void*>(-1), (int id, const void* at, int flags),
        (id, at, flags))
FORWARD(int, shmctl, shmctl, k_elsewhere, -1, (int id, int command, struct shmid_ds* status), (id, command, status))
FORWARD(int, msgget, msgget, k_elsewhere, -1, (key_t key, int flags), (key, flags))
FORWARD(int, msgsnd, msgsnd, k_elsewhere, -1, (int id, const void* message, size_t size, int flags),
        (id, message, size, flags))
FORWARD(ssize_t, msgrcv, msgrcv, k_elsewhere, -1, (int id, void* message, size_t size, long type, int flags),
        (id, message, size, type, flags))
FORWARD(int, msgctl, msgctl, k_elsewhere, -1, (int id, int command, struct msqid_ds* status), (id, command, status))
FORWARD(int, semget, semget, k_elsewhere, -1, (key_t key, int count, int flags), (key, count, flags))
FORWARD(void*, mmap, mmap, FileAt(fd), MAP_FAILED,
        (void* at, size_t length, int protection, int flags, int fd, off_t offset),
        (at, length, protection, flags, fd, offset))
FORWARD(int, pthread_create, pthread_create, k_elsewhere, errno,
        (pthread_t * thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument),
        (thread, attributes, run, argument))

// Looking up the next allocator would itself allocate.
void* malloc(size_t size) {
    return Fails(k_malloc) ? nullptr : __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    return Fails(k_malloc) ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* block, size_t size) {
    return Fails(k_malloc) ? nullptr : __libc_realloc(block, size);
}
}
