"""The driver's side of Shim.cpp: which calls of the recorder are to fail, and what became of it."""

import errno
import mmap
import os
import struct

# The calls that can be made to fail, in the order of Shim.cpp, and how.
FAULTS = {
    "open": "EIO EROFS ENODEV EINTR EMFILE ENOMEM", "pread": "EIO ENODEV EINTR short",
    "pwrite": "EIO ENOSPC EROFS ENODEV EINTR short torn kill", "close": "EIO ENOSPC EINTR",
    "access": "EIO ENOMEM EACCES ENOENT", "fcntl": "EINTR ENOLCK", "fstat": "EIO ENOMEM", "statfs": "EIO EINTR",
    "fsync": "EIO ENOSPC EINTR", "fopen": "EIO EMFILE ENOMEM", "fread": "EIO", "rename": "EIO ENOSPC EROFS",
    "popen": "EMFILE ENOMEM",
    "shmget": "ENOENT ENOMEM EACCES", "shmat": "ENOMEM EINVAL", "shmctl": "EIDRM EACCES",
    "msgget": "ENOENT ENOMEM ENOSPC", "msgsnd": "EINTR EAGAIN ENOMEM EIDRM", "msgrcv": "EINTR ENOMEM EIDRM",
    "msgctl": "EIDRM EACCES", "semget": "ENOENT ENOSPC", "semctl": "EIDRM EACCES", "mmap": "ENOMEM EACCES",
    "malloc": "ENOMEM", "pthread_create": "EAGAIN", "socket": "EMFILE ENOMEM", "bind": "EADDRINUSE",
    "listen": "EADDRINUSE",
}
CALLS = list(FAULTS)
PLACES = ("elsewhere device index record_file event_file system_head file_head section_head stream key_frame "
          "event_head event").split()
SPECIAL = {"short": -1, "torn": -2, "kill": -3}
SIZE = 36 + 4 * len(CALLS) * len(PLACES)


class Shim:
    """One recorder after the other may run under it; the counts go on."""

    def __init__(self, folder, library):
        self.path = os.path.join(folder, "faults")
        with open(self.path, "w+b") as file:
            file.truncate(SIZE)
            self.page = mmap.mmap(file.fileno(), SIZE)
        open(self.path + ".log", "w").close()
        self.environment = {"LD_PRELOAD": library, "FAULT_CONTROL": self.path}

    def arm(self, call, place, fault, skip, count):
        """From now on `count` such calls (0: all until `disarm`) fail, the first `skip` excepted."""
        self.disarm()
        number = SPECIAL[fault] if fault in SPECIAL else getattr(errno, fault)
        struct.pack_into("<IIiIIII", self.page, 4, 1 << CALLS.index(call), 1 << PLACES.index(place), number, skip, count, 0, 0)
        struct.pack_into("<I", self.page, 0, 1)

    def disarm(self):
        struct.pack_into("<I", self.page, 0, 0)

    @property
    def injected(self):
        return struct.unpack_from("<I", self.page, 28)[0]

    @property
    def created(self):
        return struct.unpack_from("<I", self.page, 32)[0]

    def first(self):
        """The first call that failed of those armed last: its name, place and offset."""
        with open(self.path + ".log") as file:
            lines = file.read().splitlines()
        return lines[-self.injected] if 0 < self.injected <= len(lines) else ""

    def seen(self):
        """How often each call was made at each place so far."""
        words = struct.unpack_from(f"<{len(CALLS) * len(PLACES)}I", self.page, 36)
        return {(call, place): words[i * len(PLACES) + j] for i, call in enumerate(CALLS)
                for j, place in enumerate(PLACES) if words[i * len(PLACES) + j]}
