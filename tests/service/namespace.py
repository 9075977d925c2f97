"""A world of its own for the running service: mounts, network and processes that end with the tests.

The service's paths and ports are fixed, so its tests need a machine on which /flash, /tmp and UDP ports 514
and 11001 belong to no one. All happens on a tmpfs that only this namespace sees; nothing outside changes.
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
FILES = "/under-test"  # where prepare() puts what it is given
STAGE = "VELK_SERVICE_TESTS_ROOT"

_libc = ctypes.CDLL(None, use_errno=True)


class Unavailable(Exception):
    """This machine does not let us have namespaces; the text says why."""


def check(result, what):
    if result < 0:
        number = ctypes.get_errno()
        raise OSError(number, f"{what}: {os.strerror(number)}")


def mount(source, target, kind=None, flags=0, options=None):
    encode = lambda text: None if text is None else os.fsencode(text)
    check(_libc.mount(encode(source), encode(target), encode(kind), ctypes.c_ulong(flags), encode(options)),
          f"mount {source} on {target}")


def is_real_root():
    """Root of the machine, not of a user namespace: it may give files away."""
    with open("/proc/self/uid_map") as map:
        return map.read().split()[:2] == ["0", "0"]


def unmount(target):
    check(_libc.umount2(os.fsencode(target), MNT_DETACH), f"unmount {target}")


def control_process(operation, *arguments):
    """prctl(2), of which Python has none."""
    check(_libc.prctl(operation, *map(ctypes.c_ulong, (*arguments, 0, 0, 0, 0)[:4])), "prctl")


def enter():
    """Runs this program again inside and returns its exit status; returns None when that is where we are."""
    if STAGE in os.environ:
        return None
    unshare = _working_unshare()
    root = tempfile.mkdtemp(prefix="service-tests-")
    try:
        environment = {**os.environ, STAGE: root, "PYTHONDONTWRITEBYTECODE": "1"}
        return subprocess.run([*unshare, sys.executable, *sys.argv], env=environment).returncode
    finally:
        os.rmdir(root)


def _working_unshare():
    """Root needs no user namespace, and may do without one where the kernel grants none."""
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
    """Makes this process's root a tmpfs with the machine's folders bound into it, but for /tmp and /flash.

    files: paths to copy into FILES under their names given, as a dictionary of name to path.
    """
    root = os.environ[STAGE]
    try:
        mount(None, "/", None, MS_REC | MS_PRIVATE)
        mount("tmpfs", root, "tmpfs")
        for entry in os.scandir("/"):
            if entry.name not in ("tmp", "flash", "proc"):
                _bind(entry, os.path.join(root, entry.name))
        for name in ("tmp", "flash", "proc", FILES):
            os.mkdir(os.path.join(root, name.lstrip("/")))
        mount("proc", os.path.join(root, "proc"), "proc")
        _raise_loopback()
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


def _raise_loopback():
    SIOCSIFFLAGS, IFF_UP = 0x8914, 1
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        fcntl.ioctl(any_socket, SIOCSIFFLAGS, struct.pack("16sH14x", b"lo", IFF_UP))
