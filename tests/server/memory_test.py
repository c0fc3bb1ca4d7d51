#!/usr/bin/env python3
"""memory_test.py QELSERV QEL: where the key server's memory has key material, seen by the super-user
of a private host (scripts/sandbox). While a user is logged in it is in locked memory only, later it is
nowhere; other processes cannot read it, and a server that dies leaves no core file."""
import os
import re
import signal
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
from key_server import (DECRYPT, DIGEST_INFO, LOCK, OK, SIGN, WITHDRAW, Key, Peer, Refused, Server,
                        crypt_record, drop_record, login_record)

KEYID = "memory"
SESSION_KEY = os.urandom(16)
WINDOW = 16  # bytes of a number that count as a copy of it
PAGE = os.sysconf("SC_PAGE_SIZE")
failures = []


def check(condition, what):
    print(("ok: " if condition else "FAILED: ") + what, flush=True)
    if not condition:
        failures.append(what)


def patterns(key):
    """Parts of every secret number in every form that it may take: bytes from the highest or the
    lowest, limbs of 52 bits in words of 64, bytes each in a word of its own."""
    found = {SESSION_KEY: "session key",
             b"".join(bytes([0, 0, 0, byte]) for byte in SESSION_KEY): "session key in a message"}
    for name in ("d", "p", "q", "dp", "dq", "inverse"):
        number = getattr(key, name)
        high = number.to_bytes((number.bit_length() + 7) // 8, "big")
        limbs = b"".join((number >> 52 * i & (1 << 52) - 1).to_bytes(8, "little") for i in range(8))
        forms = {"bytes": high, "limbs": high[::-1], "limbs of 52 bits": limbs}
        for form, octets in forms.items():
            for at in range(0, len(octets) - WINDOW + 1, WINDOW):
                found[octets[at:at + WINDOW]] = f"{name}, {form}, from {at}"
        for at in range(0, len(high) - WINDOW + 1, WINDOW):
            part = b"".join(bytes([0, 0, 0, byte]) for byte in high[at:at + WINDOW])
            found[part] = f"{name}, words of a message, from {at}"
    return found


class Mapping:
    def __init__(self, head):
        begin, end, self.access = re.match(r"(\w+)-(\w+) (\S+)", head).groups()
        self.begin, self.end = int(begin, 16), int(end, 16)
        self.name = head.split(maxsplit=5)[5] if len(head.split()) > 5 else "anonymous"
        self.flags = []
        self.own = False # holds pages that are not a file's


def mappings(pid):
    found = []
    with open(f"/proc/{pid}/smaps", encoding="utf-8") as file:
        for line in file.read().splitlines():
            if re.match(r"[0-9a-f]+-[0-9a-f]+ ", line):
                found.append(Mapping(line))
            elif line.startswith("Anonymous:"):
                found[-1].own = line.split()[1] != "0"
            elif line.startswith("VmFlags:"):
                found[-1].flags = line.split()[1:]
    return found


def written_parts(memory, mapping):
    """The runs of pages that are not all zeros."""
    run = b""
    memory.seek(mapping.begin)
    for at in range(mapping.begin, mapping.end, PAGE):
        page = memory.read(PAGE)
        if len(page) != PAGE:
            raise OSError(f"{mapping.name}: cannot be read at {at:x}")
        if page.count(0) != PAGE:
            run += page
        elif run:
            yield run
            run = b""
    yield run


def scan(pid, wanted):
    """(mapping, what) for every copy in the memory of a process, which stands still meanwhile."""
    os.kill(pid, signal.SIGSTOP)
    try:
        with open(f"/proc/{pid}/mem", "rb", buffering=0) as memory:
            return [(mapping, what) for mapping in mappings(pid) if mapping.own
                    for run in written_parts(memory, mapping)
                    for part, what in wanted.items() if part in run]
    finally:
        os.kill(pid, signal.SIGCONT)


def told(copies):
    places = sorted({f"{mapping.name}: {what}" for mapping, what in copies})
    return f"{len(copies)} copies" + ("".join("\n    " + place for place in places[:12]))


def use(key):
    with Peer() as peer:
        for number in range(20):
            if peer.crypt(DECRYPT, key.encrypted(SESSION_KEY), KEYID) != SESSION_KEY:
                raise ValueError("a wrong plaintext")
            # Behind its answer, the one before has been wiped.
            data = DIGEST_INFO + bytes([number]) * 16
            if not key.has_signed(peer.crypt(SIGN, data, KEYID), data):
                raise ValueError("a wrong signature")


def log_in(key, seconds=0):
    with Peer() as peer:
        status = peer.status(login_record(key, KEYID, seconds))
    if status != OK:
        raise Refused(status)


def log_out():
    with Peer() as peer:
        peer.status(drop_record(os.getuid(), KEYID, WITHDRAW))


def is_gone(server, wanted, when):
    copies = scan(server.pid, wanted)
    check(not copies, f"no key material anywhere {when}: {told(copies)}")


def while_logged_in(server, key, wanted):
    is_gone(server, wanted, "before any login")
    log_in(key)
    use(key)
    copies = scan(server.pid, wanted)
    check(bool(copies), f"the scan sees the key while the user is logged in: {told(copies)}")
    unwrapped = [copy for copy in copies if copy[1].startswith("session key")]
    check(not unwrapped, f"nothing is left of what was unwrapped: {told(unwrapped)}")
    unlocked = [copy for copy in copies if "lo" not in copy[0].flags]
    check(not unlocked, f"key material in locked memory only: {told(unlocked)}")
    open_to_swap = [mapping.name for mapping in mappings(server.pid)
                    if "w" in mapping.access and "lo" not in mapping.flags]
    check(not open_to_swap, f"every writable mapping is locked: {open_to_swap}")


def afterwards(server, key, wanted):
    log_out()
    is_gone(server, wanted, "after logout")

    log_in(key, 1)
    use(key)
    time.sleep(2.2)
    is_gone(server, wanted, "once the life-time is over")

    log_in(key)
    use(key)
    with Peer() as peer:
        peer.status(drop_record(os.getuid(), KEYID, LOCK))
    is_gone(server, wanted, "in a locked entry")
    log_out()

    call = login_record(key, KEYID)
    with Peer() as peer:
        peer.send(call[:-400])
        time.sleep(0.3)
        check(bool(scan(server.pid, wanted)), "the scan sees the key in a half call")
    time.sleep(0.3)
    is_gone(server, wanted, "after half a login")

    with Peer() as peer:
        for _ in range(3):
            peer.status(call[:-4] + b"\0\0\0\1" if call[-1:] != b"\1" else call[:-4] + b"\0\0\0\2")
    is_gone(server, wanted, "after logins that are refused")

    with Peer() as peer:
        peer.send(call + crypt_record(SIGN, DIGEST_INFO + bytes(16), KEYID) * 50)
    time.sleep(0.3)
    log_out()
    is_gone(server, wanted, "after calls whose client did not wait")


TRACE = """
import ctypes, os, sys
libc = ctypes.CDLL(None, use_errno=True)
os.setgroups([]); os.setresgid(60001, 60001, 60001); os.setresuid(60001, 60001, 60001)
pid = int(sys.argv[1])
attached = libc.ptrace(16, pid, 0, 0) == 0
try:
    open(f"/proc/{pid}/mem", "rb").close()
    opened = True
except OSError:
    opened = False
sys.exit((1 if attached else 0) + (2 if opened else 0))
"""


def other_processes(server):
    with open(f"/proc/{server.pid}/status", encoding="utf-8") as file:
        check("CapPrm:\t0000000000004000" in file.read(), "the server may lock memory, and no more")
    idle = subprocess.Popen([sys.executable, "-c", "import ctypes, os, time\n"
                             "os.setresgid(60001, 60001, 60001)\n"
                             "os.setresuid(60001, 60001, 60001)\n"
                             "ctypes.CDLL(None).prctl(4, 1)  # may be traced\ntime.sleep(60)"])
    time.sleep(0.5)
    for pid, expected, what in ((idle.pid, None, "can trace another process of its own"),
                                (server.pid, 0, "can neither trace nor read the server")):
        result = subprocess.run([sys.executable, "-c", TRACE, str(pid)], check=False).returncode
        if expected is None:
            print(f"note: the server's user {what}: {'yes' if result else 'no'} ({result})")
        else:
            check(result == expected, f"the server's user {what} ({result})")
    idle.kill()
    idle.wait()


def death(server, key, folder):
    """SIGSEGV, as a fault in the code would have it; a process beside it does leave a core file."""
    os.chdir(folder)
    os.chmod(folder, 0o777)
    log_in(key)
    use(key)
    status = server.end(signal.SIGSEGV)
    check(os.WIFSIGNALED(status) and os.WTERMSIG(status) == signal.SIGSEGV and
          not os.WCOREDUMP(status), "the server dies of a fault without a core file")
    control = os.fork()
    if control == 0:
        import resource
        hard = resource.getrlimit(resource.RLIMIT_CORE)[1]
        resource.setrlimit(resource.RLIMIT_CORE, (hard, hard))
        os.kill(os.getpid(), signal.SIGSEGV)
    dumped = os.WCOREDUMP(os.waitpid(control, 0)[1])
    print(f"note: core files are {'' if dumped else 'not '}made on this host")


def main():
    if os.geteuid() != 0 or not os.path.exists("/home/alice"):
        print("skipped: only the super-user's private host has other users and locked memory")
        return 77
    with tempfile.TemporaryDirectory() as folder:
        key = Key(folder, sys.argv[2], KEYID)
        wanted = patterns(key)
        server = Server(sys.argv[1])
        while_logged_in(server, key, wanted)
        afterwards(server, key, wanted)
        other_processes(server)
        death(server, key, folder)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
