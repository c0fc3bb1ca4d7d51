"""What tests on a private host need of the key server: a key with its package, calls made by hand
(RFC 5531), and the server's process."""
import base64
import os
import signal
import socket
import struct
import subprocess
import time

SOCKET = "/run/qelserv/socket"
LOG = "/run/qelserv.log"
SETKEY, STATKEY, DECRYPT, SIGN = 1, 3, 4, 5
WITHDRAW, LOCK, WITHDRAW_ALL = 0, 1, 2
OK = 0
RSA_ENCRYPTION = bytes.fromhex("300d06092a864886f70d0101010500")
DIGEST_INFO = bytes.fromhex("3020300c06082a864886f70d020505000410")


def word(value):
    return struct.pack(">I", value & 0xFFFFFFFF)


def text(value):
    value = value.encode()
    return word(len(value)) + value + bytes(-len(value) % 4)


def array(value):
    return word(len(value)) + b"".join(word(byte) for byte in value)


def record(procedure, argument):
    message = b"".join(word(w) for w in (7, 0, 2, 100255, 1, procedure, 0, 0, 0, 0)) + argument
    return word(0x80000000 | len(message)) + message


def crypt_record(procedure, data, keyid):
    return record(procedure, word(0) * 3 + text(keyid) + text("0.0.0.0") +
                  array(RSA_ENCRYPTION) + array(data))


def login_record(key, keyid, seconds=0):
    return record(SETKEY, text(keyid) + word(0) + text("0.0.0.0") + word(seconds) + word(1) +
                  array(key.pkcs8) + array(b"") + array(key.package))


def drop_record(uid, keyid, how):
    return record(SETKEY, text(keyid) + word(1) + word(uid) + word(0) + text("0.0.0.0") +
                  word(how) + word(0) + array(b"") * 3)


class Refused(Exception):
    """The server's status."""


class Peer:
    """A connection, which sends records and takes replies apart."""

    def __init__(self, timeout=20):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(timeout)
        self.socket.connect(SOCKET)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, data):
        self.socket.sendall(data)

    def receive(self):
        """The results of an accepted call."""
        data = b""
        while len(data) < 4 or len(data) < 4 + (int.from_bytes(data[:4], "big") & 0x7FFFFFFF):
            more = self.socket.recv(65536)
            if not more:
                raise ConnectionError("closed by the server")
            data += more
        if data[8:28] != word(1) + word(0) * 4:
            raise Refused("not accepted: " + data[:28].hex())
        return data[28:]

    def status(self, call):
        """The status that begins the result of SETKEY."""
        self.send(call)
        return int.from_bytes(self.receive()[:4], "big")

    def crypt(self, procedure, data, keyid):
        self.send(crypt_record(procedure, data, keyid))
        result = self.receive()
        there, status, length = struct.unpack_from(">III", result)
        if there != 1 or status != OK:
            raise Refused(status)
        return bytes(result[12 + 4 * i + 3] for i in range(length))


def read_integers(der):
    """The numbers of an RSAPrivateKey (PKCS#1)."""
    numbers, at = [], 4
    while at < len(der):
        length, at = der[at + 1], at + 2
        if length & 0x80:
            size = length & 0x7F
            length, at = int.from_bytes(der[at:at + size], "big"), at + size
        numbers.append(int.from_bytes(der[at:at + length], "big"))
        at += length
    return numbers


class Key:
    """An RSA key pair, made by OpenSSL, with a key package, made by the command."""

    def __init__(self, folder, qel, keyid, bits=1024):
        def run(*words, **more):
            return subprocess.run(words, check=True, capture_output=True, **more).stdout

        pem, p8, package = (os.path.join(folder, f"{keyid}.{kind}") for kind in ("pem", "p8", "pkg"))
        old_mask = os.umask(0o077)
        run("openssl", "genrsa", "-traditional", "-out", pem, str(bits))
        run("openssl", "pkcs8", "-topk8", "-nocrypt", "-in", pem, "-outform", "DER", "-out", p8)
        with open(p8, "rb") as file:
            self.pkcs8 = file.read()
        run(qel, "keypkg", "import", "--owner", "CN=Test", "--id", keyid, "--iterations", "1000",
            "--passin", "env:PHRASE", "--output", package, p8,
            env={**os.environ, "PHRASE": "correct horse"})
        raw = run("openssl", "rsa", "-in", pem, "-traditional", "-outform", "DER")
        os.umask(old_mask)
        with open(package, encoding="ascii") as file:
            self.package = base64.b64decode(
                "".join(line for line in file if not line.startswith("-----")))
        (_, self.n, self.e, self.d, self.p, self.q, self.dp, self.dq,
         self.inverse) = read_integers(raw)
        self.size = bits // 8

    def has_signed(self, signature, data):
        block = pow(int.from_bytes(signature, "big"), self.e, self.n).to_bytes(self.size, "big")
        return block == b"\0\1" + b"\xff" * (self.size - 3 - len(data)) + b"\0" + data

    def encrypted(self, data):
        """A PKCS#1 block of type 2 under the public key."""
        padding = bytes(1 + byte % 255 for byte in os.urandom(self.size - 3 - len(data)))
        block = int.from_bytes(b"\0\2" + padding + b"\0" + data, "big")
        return pow(block, self.e, self.n).to_bytes(self.size, "big")


class Server:
    """The key server as a child process, with its end."""

    def __init__(self, program, *options):
        os.makedirs("/run/qelserv", exist_ok=True)
        os.chown("/run/qelserv", 60001, 0)
        log = os.open(LOG, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600)
        self.pid = os.fork()
        if self.pid == 0:
            os.dup2(log, 2)
            os.execv(program, [program, "--verbose", *options])
        os.close(log)
        self.wait_for("registered with rpcbind")

    def log(self):
        with open(LOG, encoding="utf-8", errors="replace") as file:
            return file.read()

    def wait_for(self, line, seconds=15):
        end = time.monotonic() + seconds
        while line not in self.log():
            if time.monotonic() > end:
                raise TimeoutError(f"the server never said: {line}\n{self.log()}")
            time.sleep(0.02)

    def alive(self):
        return os.waitpid(self.pid, os.WNOHANG)[0] == 0

    def end(self, number=signal.SIGTERM):
        """The status that wait tells."""
        os.kill(self.pid, number)
        return os.waitpid(self.pid, 0)[1]
