"""The driver's side of Shim.cpp: which calls of the recorder are to fail, and what became of it."""

import errno
import mmap
import os
from ctypes import Structure, c_int32, c_uint32, sizeof

# The calls that can be made to fail, in the order of Shim.cpp, and how.
FAULTS = {
    "open": "EIO EROFS ENODEV EINTR EMFILE ENOMEM", "pread": "EIO ENODEV EINTR short",
    "pwrite": "EIO ENOSPC EROFS ENODEV EINTR short torn kill", "close": "EIO ENOSPC EINTR",
    "access": "EIO ENOMEM EACCES ENOENT", "fcntl": "EINTR ENOLCK", "fstat": "EIO ENOMEM", "statfs": "EIO EINTR",
    "fsync": "EIO ENOSPC EINTR", "fopen": "EIO EMFILE ENOMEM", "fread": "EIO", "rename": "EIO ENOSPC EROFS",
    "popen": "EMFILE ENOMEM",
    "shmget": "ENOENT ENOMEM EACCES", "shmat": "ENOMEM EINVAL", "shmctl": "EIDRM EACCES",
    "msgget": "ENOENT ENOMEM ENOSPC", "msgsnd": "EINTR EAGAIN ENOMEM EIDRM", "msgrcv": "EINTR ENOMEM EIDRM",
    "msgctl": "EIDRM EACCES", "semget": "ENOENT ENOSPC", "mmap": "ENOMEM EACCES",
    "malloc": "ENOMEM", "pthread_create": "EAGAIN",
}
CALLS = list(FAULTS)
PLACES = ("elsewhere device index record_file event_file system_head file_head section_head stream key_frame "
          "event_head event").split()
SPECIAL = {"short": -1, "torn": -2, "kill": -3}


class Control(Structure):
    """The page that driver and recorder share, as Shim.cpp has it."""

    _fields_ = [("armed", c_uint32), ("calls", c_uint32), ("places", c_uint32), ("fault", c_int32),
                *((name, c_uint32) for name in ("skip", "count", "matched", "injected")),
                ("seen", c_uint32 * len(PLACES) * len(CALLS))]


class Shim:
    """One recorder after the other may run under it; the counts go on."""

    def __init__(self, folder, library):
        path = os.path.join(folder, "faults")
        with open(path, "w+b") as file:
            file.truncate(sizeof(Control))
            self.page = Control.from_buffer(mmap.mmap(file.fileno(), sizeof(Control)))
        self.environment = {"LD_PRELOAD": library, "FAULT_CONTROL": path}

    def arm(self, call, place, fault, skip, count):
        """From now on `count` such calls (0: all until `disarm`) fail, the first `skip` excepted."""
        self.disarm()
        page = self.page
        page.calls, page.places = 1 << CALLS.index(call), 1 << PLACES.index(place)
        page.fault = SPECIAL[fault] if fault in SPECIAL else getattr(errno, fault)
        page.skip, page.count, page.matched, page.injected = skip, count, 0, 0
        page.armed = 1

    def disarm(self):
        self.page.armed = 0

    def seen(self):
        """How often each call was made at each place so far."""
        return {(call, place): n for call, row in zip(CALLS, self.page.seen) for place, n in zip(PLACES, row) if n}
