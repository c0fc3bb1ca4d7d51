#!/usr/bin/env python3
"""soak.py QELSERV QEL [SECONDS [PAUSE]]: mixed use of the key server by many users, for an hour unless told
otherwise, while clients and rpcbind are killed at random. To be run by the super-user on a private
host; with a build that has sanitizers:

    scripts/sandbox python3 tests/soak/soak.py build/asan/bin/qelserv build/asan/bin/qel 3600

Every answer is held against what the client has done before. In the end the server must be alive,
registered, without a word from a sanitizer, and no larger than it was after a tenth of the time.
"""
import json
import mmap
import os
import random
import signal
import struct
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "server"))
from key_server import (DECRYPT, DIGEST_INFO, LOCK, OK, SIGN, STATKEY, WITHDRAW, Key, Peer, Refused,
                        Server, crypt_record, drop_record, login_record, record, text, word)

NO_KEY, BAD_KEY, NOT_LOGGED_IN, KEY_EXISTS, LOCKED = 1, 5, 8, 9, 10
LIFETIME = 60  # of a usual login; what a killed client has left ends by itself
FIRST_UID = 60002
# A user who locks has one client, since locking takes all of the user's keys.
CLIENTS = [(FIRST_UID + user, True) for user in range(4)] + \
          [(FIRST_UID + 4 + user, False) for user in range(4) for _ in range(3)]
GROWTH = 1.25  # of resident memory, and some
SLACK_KIB = 16 * 1024


class Wrong(Exception):
    pass


class Client:
    """One client in its own process: knows what it has done, and so what it must be told."""

    def __init__(self, uid, locks, name, keys, qel):
        self.uid, self.locks, self.name, self.keys, self.qel = uid, locks, name, keys, qel
        self.random = random.Random(f"{name} {time.time_ns()}")
        self.peer = Peer()
        self.key = None  # that is logged in
        self.locked = False
        self.until = 0

    def expect(self, got, *wanted):
        if got not in wanted:
            raise Wrong(f"{self.name} of {self.uid}: status {got}, not {wanted} "
                        f"(logged in: {self.key is not None}, locked: {self.locked})")

    def state(self):
        return NOT_LOGGED_IN if self.key is None else LOCKED if self.locked else OK

    def log_in(self, seconds=LIFETIME):
        key = self.random.choice(self.keys)
        if self.key is None:
            wanted = OK
        elif not self.locked:
            wanted = KEY_EXISTS
        else:
            wanted = OK if key is self.key else BAD_KEY
        self.expect(self.peer.status(login_record(key, self.name, seconds)), wanted)
        if wanted == OK:
            self.key, self.locked, self.until = key, False, time.monotonic() + seconds

    def log_out(self):
        self.expect(self.peer.status(drop_record(self.uid, self.name, WITHDRAW)),
                    NO_KEY if self.key is None else OK)
        self.key, self.locked = None, False

    def lock(self):
        if self.locks:
            # a predecessor's entry may be locked as well
            self.expect(self.peer.status(drop_record(self.uid, "", LOCK)),
                        OK, *([NO_KEY] if self.key is None else []))
            self.locked = self.key is not None

    def crypt(self, procedure, data, keyid):
        try:
            return OK, self.peer.crypt(procedure, data, keyid)
        except Refused as refusal:
            return refusal.args[0], b""

    def sign(self):
        data = DIGEST_INFO + self.random.randbytes(16)
        status, signature = self.crypt(SIGN, data, self.name)
        self.expect(status, self.state())
        if status == OK and not self.key.has_signed(signature, data):
            raise Wrong(f"{self.name}: a wrong signature")

    def decrypt(self):
        plain = self.random.randbytes(16)
        key = self.key or self.keys[0]
        status, opened = self.crypt(DECRYPT, key.encrypted(plain), self.name)
        self.expect(status, self.state())
        if status == OK and opened != plain:
            raise Wrong(f"{self.name}: a wrong plaintext")

    def steal(self):
        other = self.random.randrange(len(CLIENTS))
        if CLIENTS[other][0] != self.uid:
            keyid = f"{other}.{self.random.randrange(10)}"
            self.expect(self.crypt(SIGN, DIGEST_INFO + bytes(16), keyid)[0], NOT_LOGGED_IN)
            self.expect(self.peer.status(drop_record(CLIENTS[other][0], keyid, WITHDRAW)), 2)

    def stat(self):
        self.peer.send(record(STATKEY, word(0) + text(self.name) + text("") + word(0)))
        there, status = struct.unpack_from(">II", self.peer.receive())
        self.expect(there, 1)
        self.expect(status, self.state())

    def expire(self):
        if self.key is None:
            self.log_in(1)
            self.sign()
            time.sleep(2.2)
            self.key = None
            self.sign()

    def reconnect(self):
        self.peer.socket.close()
        self.peer = Peer()

    def misbehave(self):
        call = crypt_record(SIGN, DIGEST_INFO + bytes(16), self.name)
        with Peer() as peer:
            peer.send(self.random.choice([
                call[:2], call[:self.random.randrange(4, len(call))], call * 5,
                word(0xFFFFFFFF) + call, word(0x7FFFFFFF),
                call[:44] + self.random.randbytes(len(call) - 44),
                self.random.randbytes(self.random.randrange(1, 5000))]))

    def run_command(self):
        if self.random.random() < 0.1:
            run = subprocess.run([self.qel, "status", "--json"], capture_output=True, check=False,
                                 timeout=60)
            if run.returncode not in (0, 4, 5):  # 5: rpcbind is away
                raise Wrong(f"qel status: {run.returncode}: {run.stderr.decode()[-4000:]}")
            json.loads(run.stdout)

    def run(self, counts, slot, pause):
        with_weights = [(self.sign, 30), (self.decrypt, 15), (self.log_in, 6), (self.log_out, 3),
                        (self.lock, 2), (self.steal, 3), (self.stat, 5), (self.expire, 1),
                        (self.reconnect, 3), (self.misbehave, 4), (self.run_command, 2)]
        actions, weights = zip(*with_weights)
        while True:
            if self.key is not None and time.monotonic() > self.until - LIFETIME / 3:
                self.log_out()
            self.random.choices(actions, weights)[0]()
            struct.pack_into("Q", counts, 8 * slot, struct.unpack_from("Q", counts, 8 * slot)[0] + 1)
            time.sleep(self.random.uniform(0, 2 * pause))


def start_client(slot, generation, keys, qel, counts, errors, pause):
    uid, locks = CLIENTS[slot]
    child = os.fork()
    if child != 0:
        return child
    os.setgroups([])
    os.setresgid(uid, uid, uid)
    os.setresuid(uid, uid, uid)
    try:
        client = Client(uid, locks, f"{slot}.{generation}", keys, qel)
        client.peer.status(drop_record(uid, f"{slot}.{generation - 1}", WITHDRAW))
        client.run(counts, slot, pause)
    except BaseException as error:  # whatever it is, somebody must see it
        os.write(errors, f"{type(error).__name__}: {error}\n".encode())
    os._exit(1)


def resident(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("VmRSS:"))


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


class Binder:
    """rpcbind. The first one is the host's."""

    def __init__(self):
        self.process = None
        self.first = next(int(pid) for pid in os.listdir("/proc") if pid.isdigit()
                          and open(f"/proc/{pid}/comm", encoding="ascii").read() == "rpcbind\n")

    def restart(self):
        if self.process is None:
            os.kill(self.first, signal.SIGKILL)
        else:
            self.process.kill()
            self.process.wait()
        time.sleep(random.uniform(0, 2))
        self.process = subprocess.Popen(["rpcbind", "-w", "-f"], stderr=subprocess.DEVNULL)

    @staticmethod
    def knows_server():
        return subprocess.run(["rpcinfo", "-T", "local", "127.0.0.1", "100255", "1"], check=False,
                              capture_output=True).returncode == 0


def wait_for(condition, seconds):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.2)
    return True


def soak(server, qel, seconds, pause, keys):
    counts = mmap.mmap(-1, 8 * len(CLIENTS))
    errors_out, errors = os.pipe()
    os.set_blocking(errors_out, False)
    binder = Binder()
    clients = {slot: start_client(slot, 0, keys, qel, counts, errors, pause)
               for slot in range(len(CLIENTS))}
    generations = dict.fromkeys(clients, 0)
    failures, killed, restarts, sizes = [], 0, 0, []
    begin = time.monotonic()
    next_restart = begin + 10
    while (now := time.monotonic()) < begin + seconds and not failures:
        time.sleep(random.uniform(0, 1))
        slot = random.randrange(len(CLIENTS))
        os.kill(clients[slot], signal.SIGKILL)
        os.waitpid(clients[slot], 0)
        killed += 1
        generations[slot] += 1
        clients[slot] = start_client(slot, generations[slot], keys, qel, counts, errors,
                                     pause)
        if now > next_restart:
            binder.restart()
            restarts += 1
            next_restart = now + random.uniform(20, 60)
        if not server.alive():
            return ["the server has ended:\n" + server.log()[-4000:]]
        sizes.append((now - begin, resident(server.pid), descriptors(server.pid)))
        try:
            failures += os.read(errors_out, 65536).decode().splitlines()
        except BlockingIOError:
            pass
    for pid in clients.values():
        os.kill(pid, signal.SIGKILL)
        os.waitpid(pid, 0)
    done = sum(struct.unpack(f"{len(CLIENTS)}Q", counts))
    warm = [size for at, size, _ in sizes if at <= seconds / 10] or [sizes[0][1]]
    late = [size for at, size, _ in sizes if at >= seconds * 0.9] or [sizes[-1][1]]
    print(f"{done} actions of {len(CLIENTS)} clients of {len({u for u, _ in CLIENTS})} users, "
          f"{killed} clients killed, {restarts} restarts of rpcbind\n"
          f"resident: {max(warm)} KiB at most in the first tenth, {max(late)} KiB in the last; "
          f"descriptors: {max(n for _, _, n in sizes)} at most")
    if max(late) > max(warm) * GROWTH + SLACK_KIB:
        failures.append("the server has grown")
    if any(count == 0 for count in struct.unpack(f"{len(CLIENTS)}Q", counts)):
        failures.append("a client was never served")
    if not wait_for(lambda: descriptors(server.pid) < 20, 5):
        failures.append(f"{descriptors(server.pid)} descriptors are open without a client")
    if not wait_for(binder.knows_server, 10):
        failures.append("the server is not registered in the end")
    status = server.end()
    if status != 0:
        failures.append(f"the server ended with {status}")
    if "ERROR:" in server.log() or "runtime error" in server.log():
        failures.append("a sanitizer speaks:\n" + server.log()[-4000:])
    return failures


def main():
    seconds = float(sys.argv[3]) if len(sys.argv) > 3 else 3600.0
    pause = float(sys.argv[4]) if len(sys.argv) > 4 else 0.0
    if os.geteuid() != 0 or os.uname().nodename != "sandbox" or not os.path.exists("/home/alice"):
        print("soak: to be run by the super-user, in scripts/sandbox", file=sys.stderr)
        return 77
    program, qel = (os.path.abspath(path) for path in sys.argv[1:3])
    with tempfile.TemporaryDirectory() as folder:
        keys = [Key(folder, qel, f"key{i}", bits) for i, bits in enumerate((512, 1024, 768, 1024))]
    # Leaks cannot be looked for in a process that nobody may trace; growth is.
    os.environ["ASAN_OPTIONS"] = "detect_leaks=0:quarantine_size_mb=16"
    os.environ["UBSAN_OPTIONS"] = "print_stacktrace=1"
    server = Server(program, "--no-memory-lock")
    failures = soak(server, qel, seconds, pause, keys)
    for failure in failures:
        print("FAILED: " + failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
