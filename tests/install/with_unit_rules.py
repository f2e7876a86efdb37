"""Runs a program under the rules that its unit has the kernel enforce: with_unit_rules.py UNIT PROGRAM [ARGUMENT...].

Where the service manager would have a system call fail, the program is killed here, so that a test sees it.
"""

import ctypes
import errno
import os
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


def settings(unit):
    """The unit's lines "KEY=VALUE", in order."""
    with open(unit, encoding="utf-8") as file:
        return [tuple(line.strip().split("=", 1)) for line in file if "=" in line and not line.startswith("#")]


def members(groups):
    """The calls in a group of the service manager's, those of the groups inside it among them."""
    listed = subprocess.run(["systemd-analyze", "syscall-filter", "--no-pager", *groups], check=True,
                            capture_output=True, text=True).stdout
    words = {line.strip() for line in listed.splitlines() if line.startswith(" ") and not line.strip().startswith("#")}
    inside = {word for word in words if word.startswith("@")}
    return (words - inside) | (members(sorted(inside)) if inside else set())


def allowed_calls(lines):
    allowed = set()
    for key, value in lines:
        if key == "SystemCallFilter":
            words = value.removeprefix("~").split()
            groups = [word for word in words if word.startswith("@")]
            calls = {word for word in words if not word.startswith("@")} | (members(groups) if groups else set())
            allowed = allowed - calls if value.startswith("~") else allowed | calls
    return allowed


def add(rules, action, call, *arguments):
    try:
        rules.add_rule(action, call, *arguments)
    except (OSError, RuntimeError, ValueError) as error:
        if getattr(error, "errno", errno.EINVAL) not in (errno.EINVAL, errno.EFAULT, errno.EDOM):
            raise


def apply_filter(lines):
    rules = seccomp.SyscallFilter(defaction=seccomp.KILL_PROCESS)
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
    rules.load()


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


def main():
    lines = settings(sys.argv[1])
    drop_capabilities(lines)
    apply_filter(lines)
    os.execv(sys.argv[2], sys.argv[2:])


if __name__ == "__main__":
    main()
