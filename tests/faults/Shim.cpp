// Preloaded into the unmodified recorder: makes chosen calls into the system fail, counts all of them.
//
// Owns nothing but its counts.  The driver (shim.py) shares a page with it, named by FAULT_CONTROL, and writes there
// which calls are to fail, where and how often; each injected fault becomes a line of FAULT_CONTROL.log.
// Never changes a call that is not chosen.  Threads: any; the page is used through atomics alone.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
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
#include <cstring>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}

namespace {

// ---- The shared page; shim.py has the same lists and the same order ----

// clang-format off
#define CALLS(X) \
    X(open) X(pread) X(pwrite) X(close) X(access) X(fcntl) X(fstat) X(statfs) X(fsync) X(fopen) X(fread) X(rename) \
    X(popen) X(shmget) X(shmat) X(shmctl) X(msgget) X(msgsnd) X(msgrcv) X(msgctl) X(semget) X(semctl) X(mmap) \
    X(malloc) X(pthread_create) X(socket) X(bind) X(listen)
#define PLACES(X) \
    X(elsewhere) X(device) X(index) X(record_file) X(event_file) /* a file as a whole */ \
    X(system_head) X(file_head) X(section_head)                  /* in the index       */ \
    X(stream) X(key_frame)                                       /* in a record file   */ \
    X(event_head) X(event)                                       /* in the event file  */
// clang-format on

#define ENUMERATOR(name) k_##name,
#define NAME(name) #name,
enum Call : uint32_t { CALLS(ENUMERATOR) kCallCount };
enum Place : uint32_t { PLACES(ENUMERATOR) kPlaceCount };
constexpr const char* kCallName[] = {CALLS(NAME)};
constexpr const char* kPlaceName[] = {PLACES(NAME)};

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
    std::atomic<uint32_t> created;  // files of the store opened for creation that were not there
    std::atomic<uint32_t> seen[kCallCount][kPlaceCount];
};
static_assert(sizeof(Control) == 36 + 4 * kCallCount * kPlaceCount);

Control* control = nullptr;
int log_descriptor = -1;

template <class Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}
#define NEXT(name) static const auto next = Next<decltype(&::name)>(#name)

__attribute__((constructor)) void Attach() {
    const char* path = getenv("FAULT_CONTROL");
    if (path == nullptr) return;
    const int page = open(path, O_RDWR | O_CLOEXEC);
    char log_path[4096];
    snprintf(log_path, sizeof log_path, "%s.log", path);
    log_descriptor = open(log_path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    void* shared = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, page, 0);
    if (page < 0 || log_descriptor < 0 || shared == MAP_FAILED) {
        perror("fault shim");
        _exit(99);
    }
    close(page);
    unsetenv("LD_PRELOAD");  // the recorder's children are not the recorder
    control = static_cast<Control*>(shared);
}

// ---- Which file a descriptor is, which place an offset ----

constexpr char kStoreDirectory[] = "/var/etc/sdcard/";
std::atomic<uint8_t> file_of[4096];  // Place of the file, by descriptor

bool IsOfStore(const char* path) {
    return strncmp(path, kStoreDirectory, sizeof kStoreDirectory - 1) == 0;
}

Place FileAt(const char* path) {
    if (path == nullptr) return k_elsewhere;
    if (strcmp(path, "/dev/mmcblk0p1") == 0) return k_device;
    if (!IsOfStore(path)) return k_elsewhere;
    const char* const name = path + sizeof kStoreDirectory - 1;
    return strncmp(name, "index", 5) == 0 ? k_index : strncmp(name, "event", 5) == 0 ? k_event_file : k_record_file;
}

Place FileAt(int fd) {
    return fd >= 0 && fd < 4096 ? static_cast<Place>(file_of[fd].load()) : k_elsewhere;
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

void Log(Call call, Place place, int64_t offset, int32_t fault) {
    char line[120];
    const int length = snprintf(line, sizeof line, "%s %s %lld %d\n", kCallName[call], kPlaceName[place],
                                static_cast<long long>(offset), fault);
    static const auto next_write = Next<decltype(&::write)>("write");
    (void)!next_write(log_descriptor, line, static_cast<size_t>(length));
}

// The fault that this call is to meet; 0: none.
int32_t FaultFor(Call call, Place place, int64_t offset = 0) {
    if (control == nullptr) return 0;
    ++control->seen[call][place];
    if (control->armed.load() == 0 || (control->calls >> call & 1) == 0 || (control->places >> place & 1) == 0)
        return 0;
    const uint32_t number = control->matched++;
    const uint32_t skip = control->skip, count = control->count;
    if (number < skip || (count != 0 && number >= skip + count)) return 0;
    const int32_t fault = control->fault;
    if (control->injected++ < 1000) Log(call, place, offset, fault);
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

int OpenedAs(int fd, const char* path) {
    if (fd >= 0 && fd < 4096) file_of[fd] = static_cast<uint8_t>(FileAt(path));
    return fd;
}

template <class Open>
int OpenOr(const char* path, int flags, Open open) {
    const Place file = FileAt(path);
    static const auto next_access = Next<decltype(&::access)>("access");
    if (control != nullptr && (flags & O_CREAT) != 0 && IsOfStore(path) && next_access(path, F_OK) != 0)
        ++control->created;
    return Fails(k_open, file) ? -1 : OpenedAs(open(), path);
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
#define OPEN(name)                                                           \
    int name(const char* path, int flags, ...) {                             \
        LAST_ARGUMENT(mode_t, mode, flags);                                  \
        NEXT(name);                                                          \
        return OpenOr(path, flags, [&] { return next(path, flags, mode); }); \
    }
OPEN(open)
OPEN(open64)

int close(int fd) {
    NEXT(close);
    const bool fails = Fails(k_close, FileAt(fd));
    const int error = errno;
    if (fd >= 0 && fd < 4096) file_of[fd] = k_elsewhere;
    const int result = next(fd);  // a descriptor is gone even when closing it reports an error
    if (!fails) return result;
    errno = error;
    return -1;
}

ssize_t pread64(int fd, void* buffer, size_t length, off64_t offset) {
    NEXT(pread64);
    return TransferOr(FaultFor(k_pread, PlaceAt(fd, offset), offset), length,
                      [&](size_t part) { return next(fd, buffer, part, offset); });
}

ssize_t pwrite64(int fd, const void* buffer, size_t length, off64_t offset) {
    NEXT(pwrite64);
    return TransferOr(FaultFor(k_pwrite, PlaceAt(fd, offset), offset), length,
                      [&](size_t part) { return next(fd, buffer, part, offset); });
}

int fcntl(int fd, int command, ...) {
    LAST_ARGUMENT(void*, argument, command);
    NEXT(fcntl);
    if (Fails(k_fcntl, FileAt(fd))) return -1;
    const int result = next(fd, command, argument);
    const bool is_copy = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
    if (is_copy && result >= 0 && result < 4096) file_of[result] = static_cast<uint8_t>(FileAt(fd));
    return result;
}

#define FORWARD(result, name, call, place, failure, parameters, arguments) \
    result name parameters {                                               \
        NEXT(name);                                                        \
        return Fails(k_##call, place) ? (failure) : next arguments;        \
    }

FORWARD(int, access, access, FileAt(path), -1, (const char* path, int mode), (path, mode))
FORWARD(int, fstat, fstat, FileAt(fd), -1, (int fd, struct stat* status), (fd, status))
FORWARD(int, fstat64, fstat, FileAt(fd), -1, (int fd, struct stat64* status), (fd, status))
FORWARD(int, stat, fstat, FileAt(path), -1, (const char* path, struct stat* status), (path, status))
FORWARD(int, stat64, fstat, FileAt(path), -1, (const char* path, struct stat64* status), (path, status))
FORWARD(int, statfs, statfs, FileAt(path), -1, (const char* path, struct statfs* status), (path, status))
FORWARD(int, statfs64, statfs, FileAt(path), -1, (const char* path, struct statfs64* status), (path, status))
FORWARD(int, fstatfs, statfs, FileAt(fd), -1, (int fd, struct statfs* status), (fd, status))
FORWARD(int, fstatfs64, statfs, FileAt(fd), -1, (int fd, struct statfs64* status), (fd, status))
FORWARD(int, fsync, fsync, FileAt(fd), -1, (int fd), (fd))
FORWARD(int, fdatasync, fsync, FileAt(fd), -1, (int fd), (fd))
FORWARD(int, sync_file_range, fsync, FileAt(fd), -1, (int fd, off64_t from, off64_t length, unsigned int flags),
        (fd, from, length, flags))
FORWARD(FILE*, fopen, fopen, FileAt(path), nullptr, (const char* path, const char* mode), (path, mode))
FORWARD(FILE*, fopen64, fopen, FileAt(path), nullptr, (const char* path, const char* mode), (path, mode))
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
FORWARD(void*, mmap64, mmap, FileAt(fd), MAP_FAILED,
        (void* at, size_t length, int protection, int flags, int fd, off64_t offset),
        (at, length, protection, flags, fd, offset))
FORWARD(int, socket, socket, k_elsewhere, -1, (int domain, int type, int protocol), (domain, type, protocol))
FORWARD(int, bind, bind, k_elsewhere, -1, (int fd, const struct sockaddr* at, socklen_t length), (fd, at, length))
FORWARD(int, listen, listen, k_elsewhere, -1, (int fd, int backlog), (fd, backlog))
FORWARD(int, pthread_create, pthread_create, k_elsewhere, errno,
        (pthread_t * thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument),
        (thread, attributes, run, argument))

int semctl(int id, int number, int command, ...) {
    LAST_ARGUMENT(void*, argument, command);
    NEXT(semctl);
    return Fails(k_semctl) ? -1 : next(id, number, command, argument);
}

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
