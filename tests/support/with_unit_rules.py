#!/usr/bin/python3
"""Runs a server under the rules that its unit has the kernel enforce: with_unit_rules.py UNITS PROGRAM [ARGUMENT...].

UNITS is the folder with those of the system and of users; the unit is the one that starts this program with these
arguments, else the one that starts it without any. Where the service manager would have a system call fail, the server is
killed here, and standard error names the call, so that a test sees it.
"""

import ctypes
import errno
import fcntl
import os
import pathlib
import select
import shlex
import signal
import socket
import struct
import subprocess
import sys

import seccomp

PR_CAPBSET_DROP = 24
LAST_CAPABILITY = "/proc/sys/kernel/cap_last_cap"
CAPABILITIES = {
    "CAP_DAC_READ_SEARCH": 2, "CAP_SETGID": 6, "CAP_SETUID": 7, "CAP_SYS_PTRACE": 19,
}  # fmt: skip
PROT_WRITE_AND_EXEC = 0x6
PROT_EXEC = 0x4
AF_UNIX = 1
# SQLite gives its files to their owner when it is root, and goes on when it may not.
TRIED = {"fchown"}
# struct seccomp_notif: its size, how it is received, and where the process and the call's number stand in it.
NOTICE_SIZE = 80
NOTICE_RECEIVE = 0xC0502100
NOTICE_PROCESS = struct.Struct("=8xI")
NOTICE_CALL = struct.Struct("=16xi")


def settings(unit):
    """The unit's lines "KEY=VALUE", in order."""
    lines = unit.read_text(encoding="utf-8").splitlines()
    return [tuple(line.strip().split("=", 1)) for line in lines if "=" in line and not line.startswith("#")]


def unit_of(folder, command):
    """The unit that starts the command, and what it says."""
    wanted = [[os.path.basename(command[0]), *command[1:]], [os.path.basename(command[0])]]
    found = {}
    for unit in sorted(pathlib.Path(folder).rglob("*.service")):
        lines = settings(unit)
        words = dict(lines).get("ExecStart", "").split()
        if words:
            found[tuple([os.path.basename(words[0]), *words[1:]])] = unit, lines
    for words in wanted:
        if tuple(words) in found:
            return found[tuple(words)]
    raise SystemExit(f"no unit in {folder} starts {shlex.join(command)}")


def groups_of_calls():
    """The groups of calls that the service manager knows by name, and what is in each, groups among it."""
    listed = subprocess.run(["systemd-analyze", "syscall-filter", "--no-pager"], check=True, capture_output=True,
                            text=True).stdout  # fmt: skip
    groups = {}
    for line in listed.splitlines():
        word = line.strip()
        if line.startswith("@"):
            groups[word] = members = set()
        elif line.startswith(" ") and not word.startswith("#"):
            members.add(word)
    return groups


def calls_in(words, groups):
    calls = set()
    for word in words:
        calls |= calls_in(groups[word], groups) if word.startswith("@") else {word}
    return calls


def allowed_calls(lines):
    groups = groups_of_calls()
    allowed = set()
    for key, value in lines:
        if key == "SystemCallFilter":
            calls = calls_in(value.removeprefix("~").split(), groups)
            allowed = allowed - calls if value.startswith("~") else allowed | calls
    return allowed


def add(rules, action, call, *arguments):
    try:
        rules.add_rule(action, call, *arguments)
    except (OSError, RuntimeError, ValueError) as error:
        if getattr(error, "errno", errno.EINVAL) not in (errno.EINVAL, errno.EFAULT, errno.EDOM):
            raise


def filter_of(lines, action):
    rules = seccomp.SyscallFilter(defaction=action)
    given = dict(lines)
    allowed = allowed_calls(lines)
    for call in sorted(TRIED - allowed):
        rules.add_rule(seccomp.ERRNO(errno.EPERM), call)
    for call in sorted(allowed):
        if call == "socket" and given.get("RestrictAddressFamilies") == "AF_UNIX":
            add(rules, seccomp.ALLOW, call, seccomp.Arg(0, seccomp.EQ, AF_UNIX))
        elif call == "mprotect" and given.get("MemoryDenyWriteExecute") == "yes":
            add(rules, seccomp.ALLOW, call, seccomp.Arg(2, seccomp.MASKED_EQ, PROT_EXEC, 0))
        elif call == "mmap" and given.get("MemoryDenyWriteExecute") == "yes":
            for protection in [0x0, 0x2, 0x4]:
                add(rules, seccomp.ALLOW, call, seccomp.Arg(2, seccomp.MASKED_EQ, PROT_WRITE_AND_EXEC, protection))
        else:
            add(rules, seccomp.ALLOW, call)
    return rules


def drop_capabilities(lines):
    kept = {CAPABILITIES[word] for key, value in lines if key == "CapabilityBoundingSet" for word in value.split()}
    if os.geteuid() != 0 or not kept:
        return
    libc = ctypes.CDLL(None, use_errno=True)
    with open(LAST_CAPABILITY, encoding="utf-8") as file:
        last = int(file.read())
    for capability in set(range(last + 1)) - kept:
        if libc.prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0 and ctypes.get_errno() != errno.EINVAL:
            raise OSError(ctypes.get_errno(), "prctl")


def watch(server, notices, unit):
    """Until the server has ended: kills who makes a call that its unit does not allow, and says which."""
    while True:
        if server in select.select([server, notices], [], [])[0]:
            return
        notice = bytearray(NOTICE_SIZE)
        try:
            fcntl.ioctl(notices, NOTICE_RECEIVE, notice)
        except OSError:  # who made it has been killed meanwhile
            continue
        name = seccomp.resolve_syscall(seccomp.Arch(), NOTICE_CALL.unpack_from(notice)[0]).decode()
        os.write(2, f"{unit.name} does not allow the system call {name}\n".encode())
        os.kill(NOTICE_PROCESS.unpack_from(notice)[0], signal.SIGKILL)


def start_watching(unit):
    """Starts the process that watches this one, which is no child of it; a socket that takes the filter's notices."""
    mine, its = socket.socketpair()
    server = os.pidfd_open(os.getpid())
    between = os.fork()
    if between == 0:
        if os.fork() == 0:
            kept = {2, server, its.fileno()}
            for descriptor in [int(name) for name in os.listdir("/proc/self/fd")]:
                if descriptor not in kept:
                    try:
                        os.close(descriptor)
                    except OSError:  # the one that listed them
                        pass
            notices = socket.recv_fds(its, 1, 1)[1]
            if notices:
                watch(server, notices[0], unit)
        os._exit(0)
    os.waitpid(between, 0)
    return mine


def main():
    unit, lines = unit_of(sys.argv[1], sys.argv[2:])
    watcher = start_watching(unit)
    drop_capabilities(lines)
    rules = filter_of(lines, seccomp.NOTIFY)
    try:
        rules.load()
    except (OSError, RuntimeError):
        # Another watches this process already, as in some containers: the server is killed, and nobody says why.
        watcher.close()
        filter_of(lines, seccomp.KILL_PROCESS).load()
    else:
        socket.send_fds(watcher, [b"!"], [rules.get_notify_fd()])
        os.set_inheritable(rules.get_notify_fd(), False)
    os.execv(sys.argv[2], sys.argv[2:])


if __name__ == "__main__":
    main()
