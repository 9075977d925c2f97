"""Mount, network and process namespaces for the running service, which end with the tests.

The service's paths and ports are fixed, so its tests need a machine on which /flash, /tmp and UDP ports 514
and 11001 are free. Those folders are on a tmpfs that only this namespace sees; write to no others.
"""
import ctypes
import fcntl
import os
import shutil
import socket
import struct
import subprocess
import sys
import tempfile

MS_RDONLY, MS_REMOUNT, MS_BIND, MS_REC, MS_PRIVATE = 1, 32, 4096, 16384, 1 << 18
MNT_DETACH = 2
FILES = "/under-test"  # where prepare() copies its files
ROOT = "VELK_SERVICE_TESTS_ROOT"

_libc = ctypes.CDLL(None, use_errno=True)


class Unavailable(Exception):
    """Namespaces cannot be created here; the text says why."""


def check(result, what):
    if result < 0:
        number = ctypes.get_errno()
        raise OSError(number, f"{what}: {os.strerror(number)}")


def mount(source, target, kind=None, flags=0, options=None):
    encode = lambda text: None if text is None else os.fsencode(text)
    check(_libc.mount(encode(source), encode(target), encode(kind), ctypes.c_ulong(flags), encode(options)),
          f"mount {source} on {target}")


def is_real_root():
    """Whether we are root outside of user namespaces, and may chown files to others."""
    with open("/proc/self/uid_map") as map:
        return map.read().split() == ["0", "0", "4294967295"]


def unmount(target):
    check(_libc.umount2(os.fsencode(target), MNT_DETACH), f"unmount {target}")


def control_process(operation, *arguments):
    """Calls prctl(2), which Python does not provide."""
    check(_libc.prctl(operation, *map(ctypes.c_ulong, (*arguments, 0, 0, 0, 0)[:4])), "prctl")


def rerun():
    """Runs this program again in new namespaces and returns its exit status; None if we are already there."""
    if ROOT in os.environ:
        return None
    unshare = _working_unshare()
    root = tempfile.mkdtemp(prefix="service-tests-")
    try:
        environment = {**os.environ, ROOT: root, "PYTHONDONTWRITEBYTECODE": "1"}
        return subprocess.run([*unshare, sys.executable, *sys.argv], env=environment).returncode
    finally:
        os.rmdir(root)


def _working_unshare():
    """Returns the unshare command, with a user namespace only if it is needed: a kernel may forbid them."""
    base = ["unshare", "--mount", "--net", "--pid", "--fork", "--kill-child"]
    reasons = []
    for unshare in (base, [*base, "--user", "--map-root-user"]):
        try:
            probe = subprocess.run([*unshare, "true"], stderr=subprocess.PIPE, text=True)
        except OSError as error:
            raise Unavailable(str(error)) from error
        if probe.returncode == 0:
            return unshare
        reasons.append(probe.stderr.strip())
    raise Unavailable("; with a user namespace: ".join(reasons))


def prepare(files):
    """Changes the root to a tmpfs with its own /tmp, /flash, /proc and FILES; other folders are bind-mounted.

    files: maps each name in FILES to the path of the file or folder to copy there.
    """
    root = os.environ[ROOT]
    try:
        mount(None, "/", None, MS_REC | MS_PRIVATE)
        mount("tmpfs", root, "tmpfs")
        for entry in os.scandir("/"):
            if entry.name not in ("tmp", "flash", "proc"):
                _bind(entry, os.path.join(root, entry.name))
        for name in ("tmp", "flash", "proc", FILES):
            os.mkdir(os.path.join(root, name.lstrip("/")))
        mount("proc", os.path.join(root, "proc"), "proc")
        _set_loopback_up()
    except OSError as error:
        raise Unavailable(str(error)) from error
    for name, path in files.items():
        copy = shutil.copytree if os.path.isdir(path) else shutil.copy2
        copy(path, root + os.path.join(FILES, name))
    os.chroot(root)
    os.chdir("/")
    os.environ["TMPDIR"] = "/tmp"


def _bind(entry, target):
    if entry.is_symlink():
        os.symlink(os.readlink(entry.path), target)
    elif entry.is_dir():
        os.mkdir(target)
        mount(entry.path, target, None, MS_BIND | MS_REC)


def _set_loopback_up():
    SIOCSIFFLAGS, IFF_UP = 0x8914, 1
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        fcntl.ioctl(any_socket, SIOCSIFFLAGS, struct.pack("16sH14x", b"lo", IFF_UP))
