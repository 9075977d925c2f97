"""Has chosen system calls of the service refused, for Service's prepare."""
import ctypes
import errno
import platform
import struct

import namespace

NUMBERS = {"x86_64": {"clone": 56, "wait4": 61},
           "aarch64": {"clone": 220, "wait4": 260}}.get(platform.machine())
CLONE3 = 435  # the same everywhere
CLONE_THREAD = 0x10000

LOAD, JUMP_EQUAL, JUMP_SET, RETURN = 0x20, 0x15, 0x45, 0x06  # of the kernel's packet filter
NUMBER_OFFSET, FLAGS_OFFSET = 0, 16  # of what it looks at: the call's number, the first argument
ALLOW, ERROR = 0x7FFF0000, 0x00050000


def refuse_forks():
    _install(_clone_filter(for_thread=ALLOW, for_process=ERROR | errno.EAGAIN))


def refuse_threads():
    _install(_clone_filter(for_thread=ERROR | errno.EAGAIN, for_process=ALLOW))


def refuse_waiting():
    _install([(LOAD, 0, 0, NUMBER_OFFSET), (JUMP_EQUAL, 0, 1, NUMBERS["wait4"]),
              (RETURN, 0, 0, ERROR | errno.ECHILD), (RETURN, 0, 0, ALLOW)])


def _clone_filter(for_thread, for_process):
    # The newer call hides its flags from a filter. Without it the C library takes the older one.
    return [(LOAD, 0, 0, NUMBER_OFFSET), (JUMP_EQUAL, 0, 1, CLONE3), (RETURN, 0, 0, ERROR | errno.ENOSYS),
            (JUMP_EQUAL, 1, 0, NUMBERS["clone"]), (RETURN, 0, 0, ALLOW),
            (LOAD, 0, 0, FLAGS_OFFSET), (JUMP_SET, 0, 1, CLONE_THREAD),
            (RETURN, 0, 0, for_thread), (RETURN, 0, 0, for_process)]


def _install(program):
    PR_SET_SECCOMP, PR_SET_NO_NEW_PRIVS, FILTER_MODE = 22, 38, 2
    code = ctypes.create_string_buffer(b"".join(struct.pack("=HBBI", *step) for step in program))
    header = ctypes.create_string_buffer(struct.pack("@HP", len(program), ctypes.addressof(code)))
    namespace.control_process(PR_SET_NO_NEW_PRIVS, 1)
    namespace.control_process(PR_SET_SECCOMP, FILTER_MODE, ctypes.addressof(header))
