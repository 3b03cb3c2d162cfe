// recordcard mount: the files of an image or device as a file system of their own (FUSE), for a recorder to
// write and anyone to read, with or without privileges.
//
// A recorder fills files that the formatter has laid out; it creates, grows, renames and removes none.  So
// the mount offers just that: every file of the root directory, readable and writable in place at its fixed
// size.  FAT and directory are never written, hence no crash or cut can harm them; every write is with the
// image's own kernel cache before the writer hears of it, so nothing is left to lose at unmount.
#define FUSE_USE_VERSION 31
#include <fuse.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "commands/Commands.h"
#include "text/Error.h"
#include "volume/Volume.h"

namespace card {

namespace {

struct MountArguments {
    std::string path;
    std::string directory;
    std::string name;  // what the mount table calls the device
    bool foreground = false;
    bool read_only = false;
};

std::string LowerCase(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    return name;
}

// What the handlers work on: the files by name, fixed for the life of the mount.  Any thread.
class MountedCard {
  public:
    MountedCard(const MountArguments& arguments)
        : volume_(Volume::Open(arguments.path, arguments.read_only ? Access::ReadOnly : Access::ReadWrite)),
          mounted_at_(time(nullptr)) {
        if (volume_.IsFolder())
            throw CardError(arguments.path + " is a folder already; use its files as they are", kUsage);
        for (const std::string& name : volume_.Names()) {
            numbers_.emplace(LowerCase(name), files_.size());
            files_.push_back(volume_.OpenFile(name));
        }
    }

    const StoreFile* Find(const char* path) const {
        const auto found = numbers_.find(LowerCase(path + 1));
        return found == numbers_.end() ? nullptr : &files_[found->second];
    }
    const std::vector<StoreFile>& Files() const { return files_; }
    bool Writable() const { return volume_.Writable(); }
    void Sync() const {
        if (Writable()) volume_.Raw()->Sync();
    }

    struct stat Status(const StoreFile* file) const {  // null: the directory itself
        struct stat status {};
        status.st_mode = file == nullptr ? S_IFDIR | 0755 : S_IFREG | (Writable() ? 0644 : 0444);
        status.st_nlink = 1;
        status.st_uid = getuid();
        status.st_gid = getgid();
        status.st_size = file == nullptr ? 0 : static_cast<off_t>(file->Size());
        status.st_blocks = status.st_size / 512;
        status.st_atime = status.st_mtime = status.st_ctime = mounted_at_;
        return status;
    }

    struct statvfs Space() const {
        const FatGeometry& geometry = volume_.Fat()->Geometry();
        const uint32_t cluster = geometry.ClusterBytes();
        uint64_t used = volume_.Fat()->RootChain().clusters;
        for (const StoreFile& file : files_) used += (file.Size() + cluster - 1) / cluster;
        struct statvfs space {};
        space.f_bsize = space.f_frsize = cluster;
        space.f_blocks = geometry.clusters;
        space.f_bfree = space.f_bavail = geometry.clusters - std::min<uint64_t>(used, geometry.clusters);
        space.f_files = files_.size();
        space.f_namemax = 255;
        return space;
    }

  private:
    Volume volume_;
    time_t mounted_at_;
    std::vector<StoreFile> files_;
    std::map<std::string, size_t> numbers_;  // by name in lower case
};

const MountedCard& Card() {
    return *static_cast<const MountedCard*>(fuse_get_context()->private_data);
}
const StoreFile& Opened(const fuse_file_info* info) {
    return Card().Files()[info->fh];
}

// Runs what reads or writes the card; its failure is an I/O error to whoever asked.
template <typename Action>
int Guarded(Action action) {
    try {
        return action();
    } catch (const std::exception& error) {
        fuse_log(FUSE_LOG_ERR, "recordcard: %s\n", error.what());
        return -EIO;
    }
}

void* OnInit(fuse_conn_info*, fuse_config* config) {
    constexpr double kForever = 86400;  // s; nobody else changes the card while it is mounted
    config->kernel_cache = 1;
    config->attr_timeout = config->entry_timeout = kForever;
    return fuse_get_context()->private_data;
}

void OnDestroy(void* card) {
    Guarded([card] {
        static_cast<const MountedCard*>(card)->Sync();
        return 0;
    });
}

int OnGetAttr(const char* path, struct stat* status, fuse_file_info*) {
    const StoreFile* file = Card().Find(path);
    if (file == nullptr && std::strcmp(path, "/") != 0) return -ENOENT;
    *status = Card().Status(file);
    return 0;
}

int OnReadDir(const char*, void* buffer, fuse_fill_dir_t fill, off_t, fuse_file_info*, fuse_readdir_flags) {
    for (const char* self : {".", ".."}) fill(buffer, self, nullptr, 0, fuse_fill_dir_flags{});
    for (const StoreFile& file : Card().Files()) {
        const struct stat status = Card().Status(&file);
        fill(buffer, file.Name().c_str(), &status, 0, fuse_fill_dir_flags{});
    }
    return 0;
}

int OnOpen(const char* path, fuse_file_info* info) {
    const StoreFile* file = Card().Find(path);
    if (file == nullptr) return -ENOENT;
    if ((info->flags & O_ACCMODE) != O_RDONLY && !Card().Writable()) return -EROFS;
    if ((info->flags & O_TRUNC) != 0) return -EPERM;
    info->fh = static_cast<uint64_t>(file - Card().Files().data());
    return 0;
}

int OnRead(const char*, char* buffer, size_t length, off_t offset, fuse_file_info* info) {
    return Guarded(
        [&] { return static_cast<int>(Opened(info).ReadAt(static_cast<uint64_t>(offset), buffer, length)); });
}

int OnWrite(const char*, const char* bytes, size_t length, off_t offset, fuse_file_info* info) {
    const StoreFile& file = Opened(info);
    const uint64_t begin = static_cast<uint64_t>(offset);
    if (begin > file.Reachable() || length > file.Reachable() - begin) return -ENOSPC;  // it would have to grow
    return Guarded([&] {
        file.WriteAt(begin, bytes, length);
        return static_cast<int>(length);
    });
}

int OnFsync(const char*, int, fuse_file_info*) {
    return Guarded([] {
        Card().Sync();
        return 0;
    });
}

int OnTruncate(const char* path, off_t size, fuse_file_info*) {
    const StoreFile* file = Card().Find(path);
    if (file == nullptr) return -ENOENT;
    return static_cast<uint64_t>(size) == file->Size() ? 0 : -EPERM;
}

int OnStatFs(const char*, struct statvfs* space) {
    *space = Card().Space();
    return 0;
}

// The root directory stays as it was formatted.
fuse_operations Operations() {
    fuse_operations operations{};
    operations.init = OnInit;
    operations.destroy = OnDestroy;
    operations.getattr = OnGetAttr;
    operations.readdir = OnReadDir;
    operations.open = OnOpen;
    operations.read = OnRead;
    operations.write = OnWrite;
    operations.fsync = OnFsync;
    operations.truncate = OnTruncate;
    operations.statfs = OnStatFs;
    operations.create = [](const char*, mode_t, fuse_file_info*) { return -EPERM; };
    operations.mknod = [](const char*, mode_t, dev_t) { return -EPERM; };
    operations.mkdir = [](const char*, mode_t) { return -EPERM; };
    operations.unlink = [](const char*) { return -EPERM; };
    operations.rmdir = [](const char*) { return -EPERM; };
    operations.rename = [](const char*, const char*, unsigned) { return -EPERM; };
    operations.link = [](const char*, const char*) { return -EPERM; };
    operations.symlink = [](const char*, const char*) { return -EPERM; };
    operations.chmod = [](const char*, mode_t, fuse_file_info*) { return -EPERM; };
    operations.chown = [](const char*, uid_t, gid_t, fuse_file_info*) { return -EPERM; };
    operations.utimens = [](const char*, const timespec*, fuse_file_info*) { return -EPERM; };
    return operations;
}

int Serve(fuse* session_of, const std::string& directory, bool foreground) {
    const std::unique_ptr<fuse, decltype(&fuse_destroy)> mount(session_of, &fuse_destroy);
    if (fuse_mount(mount.get(), directory.c_str()) != 0) {
        throw CardError("cannot mount at " + directory +
                        "; is it a folder of yours, /dev/fuse usable (modprobe fuse), and, unless you\n"
                        "are root, fusermount3 installed (apt-get install fuse3)?");
    }
    // From here on the kernel knows the mount; who looks into it waits until the loop below answers.
    if (fuse_daemonize(foreground ? 1 : 0) != 0) {
        fuse_unmount(mount.get());
        throw CardError("cannot go into the background");
    }
    fuse_session* session = fuse_get_session(mount.get());
    fuse_set_signal_handlers(session);
    const int status = fuse_loop_mt(mount.get(), 0);
    fuse_remove_signal_handlers(session);
    fuse_unmount(mount.get());
    return status < 0 ? kFailed : kDone;
}

// What lies in a folder is out of sight while a card is mounted on it.
void RequireEmpty(const std::string& folder) {
    std::error_code error;
    const bool empty = std::filesystem::is_directory(folder, error) && std::filesystem::is_empty(folder, error);
    if (error) throw CardError(folder + ": " + error.message());
    if (!empty) throw CardError(folder + " is not an empty folder; choose or make one to mount the card at", kUsage);
}

int Mount(const MountArguments& arguments) {
    const std::string name = arguments.name.empty() ? arguments.path : arguments.name;
    if (name.find(',') != std::string::npos) throw CardError("--fsname must not contain a comma", kUsage);
    MountedCard card(arguments);
    RequireEmpty(arguments.directory);
    const std::string directory = std::filesystem::absolute(arguments.directory);  // serving, the process is in "/"
    const std::string options = "fsname=" + name + ",subtype=recordcard" + (arguments.read_only ? ",ro" : "");
    fuse_args fuse_arguments = FUSE_ARGS_INIT(0, nullptr);
    for (const char* text : {"recordcard", "-o", options.c_str()}) fuse_opt_add_arg(&fuse_arguments, text);
    const fuse_operations operations = Operations();
    fuse* const mount = fuse_new(&fuse_arguments, &operations, sizeof operations, &card);
    fuse_opt_free_args(&fuse_arguments);
    if (mount == nullptr) throw CardError("cannot set up the mount");
    return Serve(mount, directory, arguments.foreground);
}

}  // namespace

Run PrepareMount(CLI::App& command) {
    const auto arguments = std::make_shared<MountArguments>();
    command.add_option("CARD", arguments->path, "Device or image file")->required();
    command.add_option("DIR", arguments->directory, "Empty folder to mount it at")->required();
    command.add_option("--fsname", arguments->name, "What the mount table calls the device (default: CARD)");
    command.add_flag("--foreground", arguments->foreground, "Stay until it is unmounted; Ctrl-C unmounts");
    command.add_flag("--read-only", arguments->read_only, "Refuse to open files for writing");
    command.footer(
        "Unmount with \"umount DIR\"; without privileges \"fusermount3 -u DIR\" (both ways then need the package "
        "fuse3).");
    return [arguments] { return Mount(*arguments); };
}

}  // namespace card
