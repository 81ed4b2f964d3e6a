"""Clients that each repeat something until they are told to end; also rude and slow ones."""

import collections
import pathlib
import random
import socket
import struct
import sys
import threading

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "e2e"))

import requests  # noqa: E402

from raw_http import Connection, request  # noqa: E402

PAUSE = 0.02  # seconds between two things that a client does
FAULTS = 50  # enough of them to end a run


class Client:
    """One client's connections, its chance, and who hears of its answers."""

    def __init__(self, crowd, number):
        self.crowd = crowd
        self.chance = random.Random(number)
        self.session = requests.Session()
        self.session.trust_env = False

    def ask(self, what, codes, method, path, body=None, delivery=False, **arguments):
        """One request and its reply, whose code has to be one of these."""
        port = self.crowd.service.port + delivery
        reply = self.session.request(method, "http://127.0.0.1:%d%s" % (port, path), data=body,
                                     timeout=60, allow_redirects=False, **arguments)
        self.crowd.answered(what, reply.status_code, codes)
        return reply


class Crowd:
    """Each of `actions()` is repeated by a client of its own."""

    def __init__(self, service):
        self.service = service
        self.ended = threading.Event()
        self.mutex = threading.Lock()
        self.answers = collections.Counter()  # guarded by the mutex, like the faults
        self.faults = []
        self.threads = []

    def actions(self):
        return [self.drop_connection, self.send_rubbish, self.send_slowly, self.stand_still,
                self.read_nothing]

    def start(self):
        self.threads = [threading.Thread(target=self._repeat, args=(action, number))
                        for number, action in enumerate(self.actions())]
        for thread in self.threads:
            thread.start()

    def finish(self):
        self.ended.set()
        for thread in self.threads:
            thread.join()

    def _repeat(self, action, number):
        client = Client(self, number)
        with client.session:
            while not self.ended.wait(PAUSE):
                try:
                    action(client)
                except Exception as fault:  # pylint: disable=broad-except
                    self.fault("%s: %r" % (action.__name__, fault))

    def answered(self, what, code, codes):
        with self.mutex:
            self.answers[what, code] += 1
        if code not in codes:
            self.fault("%s is answered with %d" % (what, code))

    def fault(self, text):
        with self.mutex:
            self.faults.append(text)
            if len(self.faults) >= FAULTS:
                self.ended.set()

    def count(self, what, code=None):
        """How many answers of a kind there were."""
        with self.mutex:
            return sum(number for (kind, seen), number in self.answers.items()
                       if kind == what and code in (None, seen))

    # Clients that no server wishes for.

    def drop_connection(self, client):
        """Opens a connection, perhaps sends half a head, and closes or resets it."""
        with Connection(self.service.port) as connection:
            if client.chance.random() < 0.5:
                connection.send("GET /job HTTP/1.1\r\nHost: x\r\nX: ")
            if client.chance.random() < 0.5:
                connection.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER,
                                             struct.pack("ii", 1, 0))

    def send_rubbish(self, client):
        texts = {400: "RUBBISH\r\n\r\n", 431: request("GET", "/", [("X", "x" * 70000)]),
                 501: request("POST", "/job", [("Transfer-Encoding", "gzip")]),
                 413: request("POST", "/job", [("Content-Length", 1 << 30)])}
        code = client.chance.choice(sorted(texts))
        with Connection(self.service.port) as connection:
            reply = connection.send(texts[code]).reply()
            self.answered("rubbish", reply.code, (code,))

    def send_slowly(self, client):
        """A head and a body, some bytes at a time."""
        text = request("POST", "/job", body="no job at all")
        with Connection(self.service.port) as connection:
            while text and not self.ended.wait(0.05):
                size = client.chance.randrange(1, 20)
                connection.send(text[:size])
                text = text[size:]
            if not text:
                self.answered("slow request", connection.reply().code, (400,))

    def stand_still(self, _):
        """Half a request, until the server has had enough."""
        with Connection(self.service.port) as connection:
            connection.send("POST /job HTTP/1.1\r\nHost: x\r\nContent-Length: 100\r\n\r\nhalf")
            connection.socket.settimeout(0.5)
            while not self.ended.is_set():
                try:
                    if connection.receive():
                        self.answered("half a request", connection.reply().code, (408,))
                    break
                except socket.timeout:
                    continue

    def read_nothing(self, _):
        """Many requests in one packet, none of whose replies is taken for a while."""
        with Connection(self.service.port) as connection:
            connection.send(request("GET", "/job") * 50)
            self.ended.wait(1)
            self.answered("one of many requests", connection.reply().code, (200,))
