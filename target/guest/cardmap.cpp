// cardmap create|load TABLE ... | suspend | resume: the emulated camera's card behind a mapped device,
// "/dev/mmcmapped".
//
// A suspended device holds what is asked of the card until it is resumed: a card that stalls, in the guest's own time.
// Another table makes a card that refuses writes: each argument is "START LENGTH TARGET PARAMETERS", in sectors of 512.
#include <fcntl.h>
#include <linux/dm-ioctl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

constexpr const char* kName = "card";
constexpr const char* kNode = "/dev/mmcmapped";

struct Request {
    dm_ioctl head{};
    std::array<char, 4096> rest{};
};

bool Ask(int control, unsigned long code, Request& request) {
    request.head.version[0] = DM_VERSION_MAJOR;
    request.head.data_size = sizeof request;
    request.head.data_start = sizeof request.head;
    std::strncpy(request.head.name, kName, sizeof request.head.name - 1);
    if (ioctl(control, code, &request) == 0) return true;
    std::fprintf(stderr, "cardmap: device mapper: %s\n", std::strerror(errno));
    return false;
}

bool Load(int control, char** lines, int count) {
    Request request;
    size_t at = 0;
    for (int i = 0; i < count; ++i) {
        unsigned long long start = 0;
        unsigned long long length = 0;
        char type[DM_MAX_TYPE_NAME] = {};
        int read = 0;
        if (std::sscanf(lines[i], "%llu %llu %15s %n", &start, &length, type, &read) != 3) return false;
        const std::string parameters = lines[i] + read;
        const size_t size = (sizeof(dm_target_spec) + parameters.size() + 1 + 7) / 8 * 8;
        if (at + size > request.rest.size()) return false;
        dm_target_spec target{};
        target.sector_start = start;
        target.length = length;
        target.next = static_cast<uint32_t>(size);
        std::memcpy(target.target_type, type, sizeof type);
        std::memcpy(&request.rest[at], &target, sizeof target);
        std::memcpy(&request.rest[at + sizeof target], parameters.c_str(), parameters.size() + 1);
        at += size;
    }
    request.head.target_count = static_cast<uint32_t>(count);
    return Ask(control, DM_TABLE_LOAD, request);
}

// The file system above is not frozen, and nothing is waited for: a card stalls without notice.
bool Suspend(int control, bool suspended) {
    Request request;
    request.head.flags = suspended ? DM_SUSPEND_FLAG | DM_SKIP_LOCKFS_FLAG | DM_NOFLUSH_FLAG : 0;
    return Ask(control, DM_DEV_SUSPEND, request);
}

bool Create(int control, char** lines, int count) {
    Request request;
    if (!Ask(control, DM_DEV_CREATE, request) || !Load(control, lines, count) || !Suspend(control, false)) return false;
    const uint64_t device = request.head.dev;  // as the kernel tells it: new_encode_dev()
    const auto major = static_cast<unsigned>(device >> 8 & 0xFFF);
    const auto minor = static_cast<unsigned>((device & 0xFF) | (device >> 12 & 0xFFF00));
    return mknod(kNode, S_IFBLK | 0600, makedev(major, minor)) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    const int control = open("/dev/mapper/control", O_RDWR | O_CLOEXEC);
    if (control < 0) {
        std::perror("cardmap: /dev/mapper/control");
        return 1;
    }
    const std::string verb = argc > 1 ? argv[1] : "";
    bool done = false;
    if (verb == "create") done = Create(control, argv + 2, argc - 2);
    if (verb == "load") done = Suspend(control, true) && Load(control, argv + 2, argc - 2) && Suspend(control, false);
    if (verb == "suspend" || verb == "resume") done = Suspend(control, verb == "suspend");
    if (!done) std::fprintf(stderr, "cardmap: %s failed\n", verb.c_str());
    close(control);
    return done ? 0 : 1;
}
