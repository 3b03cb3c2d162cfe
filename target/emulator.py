"""The emulated camera: a 32-bit ARM board with a real kernel, its vfat and an SD host, and our recorder on it.

`Parts` makes what a boot needs (kernel, initial file system, card image); `Camera` is one boot of it.  The guest's time runs
by counted instructions (500 million a second), so figures do not depend on what else this machine does.
"""

import json
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import time
from contextlib import contextmanager
from datetime import datetime, timezone
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent
ARM = ROOT / "build/arm"
WORK = ROOT / "build/target"
RECORDER = ARM / "src/AVRecordEx/AVRecordAccess/AVRecordAccess"
RECORDCARD = ROOT / "build/release/card/recordcard"
CROSS_LIBRARIES = Path("/usr/arm-linux-gnueabihf/lib")
PARTITION_START = 8192 * 512  # bytes; where cards have their first partition

MODULES = ["virtio_mmio", "virtio_pci", "virtio_console", "nls_cp437", "nls_ascii", "nls_iso8859-1", "nls_utf8", "fat",
           "vfat", "cqhci", "sdhci", "sdhci-pci", "dm-mod", "dm-flakey"]


class CameraError(Exception):
    pass


def run(*arguments, **options):
    done = subprocess.run([str(a) for a in arguments], capture_output=True, text=True, **options)
    if done.returncode != 0:
        raise CameraError(f"{' '.join(map(str, arguments))}\n{done.stdout}{done.stderr}")
    return done.stdout


# ---- What a boot needs


def build():
    if not (ROOT / "build/release/build.ninja").exists():
        run("cmake", "--preset", "release", "-DRECORDER_TESTS=OFF", cwd=ROOT)
    run("nice", "cmake", "--build", ROOT / "build/release", "--target", "recordcard", cwd=ROOT)
    run("cmake", "--preset", "arm", cwd=ROOT)
    run("nice", "cmake", "--build", ARM, "--target", "recorder", "guestcamera", "cardmap", cwd=ROOT)


def needed_libraries(program):
    """The shared objects of a program, theirs included; all from the cross compiler's folder."""
    found, todo = set(), [program]
    while todo:
        for line in run("arm-linux-gnueabihf-readelf", "-d", todo.pop()).splitlines():
            if "(NEEDED)" in line:
                name = line.split("[")[1].rstrip("]")
                if name not in found:
                    found.add(name)
                    todo.append(CROSS_LIBRARIES / name)
    return sorted(found | {"ld-linux-armhf.so.3"})


def make_initrd(folder, clip, recorder=RECORDER):
    """The guest's file system in memory, made in `folder`; returns the kernel and the archive."""
    run(HERE / "fetch", WORK / "guest")
    tree = Path(folder) / "initrd"
    shutil.rmtree(tree, ignore_errors=True)
    for part in ("bin", "lib/modules"):
        (tree / part).mkdir(parents=True)
    shutil.copy(WORK / "guest/bin/busybox", tree / "bin/busybox")
    shutil.copy(recorder, tree / "bin/AVRecordAccess")
    for name in ("guestcamera", "cardmap"):
        shutil.copy(ARM / "target" / name, tree / "bin")
    run("arm-linux-gnueabihf-strip", *(tree / "bin" / name for name in ("AVRecordAccess", "guestcamera", "cardmap")))
    for name in needed_libraries(recorder):
        shutil.copy(CROSS_LIBRARIES / name, tree / "lib")
    for name in MODULES:
        for module in (WORK / "guest/lib/modules").rglob(f"{name}.ko"):
            shutil.copy(module, tree / "lib/modules")
    shutil.copy(HERE / "guest/init", tree / "init")
    shutil.copy(clip, tree / "clip.bin")
    archive = Path(folder).resolve() / "initrd.gz"
    subprocess.run(f"cd '{tree}' && find . | cpio -o -H newc -R 0:0 --quiet | gzip -1 >'{archive}'", shell=True, check=True)
    shutil.rmtree(tree)
    return next((WORK / "guest/boot").glob("vmlinuz-*")), archive


def make_clip(source="test"):
    """A video file, or a test picture of 4 Mbit/s; "test32" has 32."""
    is_test = re.fullmatch(r"test\d*", source)
    clip = WORK / (f"{source}.clip" if is_test else "input.clip")
    WORK.mkdir(parents=True, exist_ok=True)
    if not is_test or not clip.exists():
        run(sys.executable, HERE / "make-clip", source, f"{clip}.new")
        os.rename(f"{clip}.new", clip)
    return clip


def make_card(image, mib):
    """A sparse card image: a partition table, and our own format on the partition."""
    part = Path(f"{image}.part")
    part.unlink(missing_ok=True)
    run(RECORDCARD, "format", "--yes", "--size", f"{mib}M", part)
    size = part.stat().st_size
    entry = struct.pack("<B3sB3sII", 0, b"\xfe\xff\xff", 0x0C, b"\xfe\xff\xff", PARTITION_START // 512, size // 512)
    with open(image, "wb") as file:
        file.write(bytes(446) + entry + bytes(48) + b"\x55\xaa")
        file.truncate(1 << (PARTITION_START + size - 1).bit_length())  # the emulated slot takes powers of two
    copy_data(part, 0, image, PARTITION_START)
    part.unlink()


def copy_data(source, source_start, target, target_start):
    """Copies what lies in `source` from byte `source_start` on to `target_start`; holes stay holes."""
    with open(source, "rb") as reader, open(target, "rb+") as writer:
        end, at = reader.seek(0, 2), source_start
        while at < end:
            try:
                at = os.lseek(reader.fileno(), at, os.SEEK_DATA)
            except OSError:  # nothing but a hole any more
                return
            hole = os.lseek(reader.fileno(), at, os.SEEK_HOLE)
            writer.seek(target_start + at - source_start)
            while at < hole:
                data = os.pread(reader.fileno(), min(hole - at, 1 << 20), at)
                writer.write(data)
                at += len(data)


# ---- One boot


def image_node(name, image):
    return {"node-name": name, "driver": "raw", "file": {"driver": "file", "filename": str(Path(image).resolve())}}


class Camera:
    """A booted camera.  `card` is written as the guest writes it; what was cut off never reaches it."""

    def __init__(self, kernel, initrd, card, folder, mount="noatime", vm="", trace=False, mapped=False, clock=None, log=""):
        self.folder = Path(folder)
        self.folder.mkdir(parents=True, exist_ok=True)
        self.console = self.folder / "console.log"
        self.journal = self.folder / "journal.log"
        self.log = self.folder / "recorder.log"
        self.trace = self.folder / "trace.log"
        self.control = self.folder / "control"
        self.monitor = self.folder / "monitor"
        for stale in (self.console, self.journal, self.log, self.trace, self.control, self.monitor):  # nobody takes an earlier boot's words for this one's
            stale.unlink(missing_ok=True)
        self.booted = int(clock or time.time())  # the guest's clock begins here
        command = ["qemu-system-arm", "-M", "virt,highmem=off", "-cpu", "cortex-a7", "-smp", "1", "-m", "192", "-nographic",
                   "-no-reboot", "-nodefaults", "-icount", "shift=1,sleep=off",
                   "-rtc", f"base={datetime.fromtimestamp(self.booted, timezone.utc):%Y-%m-%dT%H:%M:%S},clock=vm",
                   "-kernel", kernel, "-initrd", initrd,
                   "-append", f"console=ttyAMA0 panic=1 quiet mount={mount} vm={vm} trace={int(trace)} "
                   f"mapped={int(mapped)} log={log}",
                   "-blockdev", json.dumps(image_node("card", card)), "-device", "sdhci-pci", "-device", "sd-card,id=sd,drive=card",
                   "-serial", f"file:{self.console}", "-monitor", "none", "-qmp", f"unix:{self.monitor},server=on,wait=off",
                   "-device", "virtio-serial-device"]
        for name, path in (("journal", self.journal), ("log", self.log), ("trace", self.trace)):
            command += ["-chardev", f"file,id={name},path={path}", "-device", f"virtserialport,chardev={name},name={name}"]
        command += ["-chardev", f"socket,id=control,path={self.control},server=on,wait=off",
                    "-device", "virtserialport,chardev=control,name=control"]
        self.published_at_cut = 0
        self.told = 0
        self.process = subprocess.Popen([str(part) for part in command], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=open(self.folder / "emulator.log", "wb"))

    def wait_until(self, happened, what, seconds=600, pause=0.05):
        end = time.monotonic() + seconds
        while not happened():
            if self.process.poll() is not None or time.monotonic() > end:
                raise CameraError(f"not seen before the camera ended, or within {seconds} s: {what}\n{self.last_words()}")
            time.sleep(pause)

    def wait_for(self, text, file=None, seconds=600):
        """Until `text` stands in the console (or another of the camera's logs)."""
        path = file or self.console
        self.wait_until(lambda: path.exists() and text in path.read_bytes().decode(errors="replace"), repr(text), seconds)

    def published(self):
        """Pictures published so far."""
        return self.journal.read_bytes().count(b"kind=video") if self.journal.exists() else 0

    def published_bytes(self):
        """The same, with sound, as it is packed (about)."""
        if not self.journal.exists():
            return 0
        return sum(int(length) + 40 for length in re.findall(rb"stream=0 .*length=(\d+)", self.journal.read_bytes()))

    def wait_published(self, count, seconds=600):
        self.wait_until(lambda: self.published() >= count, f"{count} pictures", seconds)

    def tell(self, line):
        """A line for the camera's shell; "stop" is an orderly power off."""
        with socket.socket(socket.AF_UNIX) as control:
            control.connect(str(self.control))
            control.sendall(f"{line}\n".encode())
            if line == "stop":
                self.process.wait(600)
            else:
                self.told += 1
                self.wait_for(f"camera: done {self.told}")

    def pull(self):
        """The card is pulled out."""
        self._ask("blockdev-remove-medium", id="sd")

    def insert(self, node="card"):
        self._ask("blockdev-insert-medium", **{"id": "sd", "node-name": node})

    def add_image(self, node, image):
        """Another card to insert."""
        self._ask("blockdev-add", **image_node(node, image))

    def _ask(self, command, **arguments):
        with socket.socket(socket.AF_UNIX) as monitor:
            monitor.connect(str(self.monitor))
            lines = monitor.makefile("rw")
            for request in ({"execute": "qmp_capabilities"}, {"execute": command, "arguments": arguments}):
                print(json.dumps(request), file=lines, flush=True)
                while True:  # greeting and events come between
                    answer = json.loads(lines.readline())
                    if "error" in answer:
                        raise CameraError(f"{command}: {answer['error']['desc']}")
                    if "return" in answer:
                        break

    def cut(self):
        """The power goes."""
        if self.process.poll() is None:
            self._stand_still()
            self.process.send_signal(signal.SIGKILL)
        self.process.wait()

    def _stand_still(self):
        self.process.send_signal(signal.SIGSTOP)
        os.waitid(os.P_PID, self.process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)  # a write under way ends first
        self.published_at_cut = self.published()

    @contextmanager
    def frozen(self):
        """Meanwhile the card is what a cut at this moment would leave.  The guest does not notice that it stood still."""
        self._stand_still()
        try:
            yield
        finally:
            self.process.send_signal(signal.SIGCONT)

    @contextmanager
    def off(self):
        """The power goes for good."""
        self.cut()
        yield

    def last_words(self):
        parts = []
        for path in (self.folder / "emulator.log", self.console):
            if path.exists():
                parts.append(path.read_bytes().decode(errors="replace")[-2000:])
        return "\n".join(parts)
