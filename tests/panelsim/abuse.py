#!/usr/bin/env python3
"""Drives panelsim as no proper client does, and measures it from outside: abuse.py PANELSIM FRONTPANEL [WORD...]

Prints a line for each attack (all, or those with one of the words in their name): memory before it, at most and after
it, most threads and open files, and the longest time in which a proper client of the page was answered meanwhile.
Fails when the program ends or does not end when asked to, a proper client gets no answer, memory grows by more than
mostGrowth, or threads or open files are left behind.
"""
import http.client
import os
import re
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

mostGrowth = 128  # MiB
patience = 20  # seconds, for anything
panelsim, frontpanel = (os.path.abspath(program) for program in sys.argv[1:3])
greeting = struct.pack("=IIQQ", 0x4C4E5050, 1, 0, 0)
create, export, init = range(3)


def request(operation, pin=0, gpio=0, output=0, level=0, stamp=0):
    return struct.pack("=qIIBBBBI", stamp, pin, gpio, operation, 0, output, level, 0)


def wait(condition):
    deadline = time.monotonic() + patience
    while not (found := condition()):
        if time.monotonic() > deadline:
            raise RuntimeError("nothing happened for %d s" % patience)
        time.sleep(0.02)
    return found


class Panelsim:
    """The program with an application (a shell command), a thread that measures it and one that is a proper client."""

    def __init__(self, application):
        self.folder = tempfile.TemporaryDirectory()
        self.errors = self.folder.name + "/errors"
        script = "env >%s/made; mv %s/made %s/environment; %s" % (*[self.folder.name] * 3, application)
        with open(self.errors, "wb") as errors:
            self.process = subprocess.Popen([panelsim, "--http", "127.0.0.1:0", "--", "sh", "-c", script],
                                            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=errors)
        self.port = int(wait(lambda: re.search(r"127\.0\.0\.1:(\d+)/", self.said())).group(1))
        wait(lambda: os.path.exists(self.folder.name + "/environment"))
        lines = open(self.folder.name + "/environment").read().splitlines()
        own = dict(line.split("=", 1) for line in lines if line.startswith(("LD_PRELOAD=", "PANELSIM_SOCKET=")))
        self.environment = {**os.environ, **own}
        self.ended = threading.Event()
        self.slowest = 0
        self.pages = 0
        self.began = time.monotonic()
        self.before = self.most = wait(self.steady_figures)
        self.threads = [threading.Thread(target=work) for work in (self.measure, self.browse)]
        for thread in self.threads:
            thread.start()

    def said(self):
        return open(self.errors, errors="replace").read()

    def figures(self):
        proc = "/proc/%d/" % self.process.pid
        pages = int(open(proc + "statm").read().split()[1])
        return pages * os.sysconf("SC_PAGE_SIZE") / 2**20, len(os.listdir(proc + "task")), len(os.listdir(proc + "fd"))

    def steady_figures(self):
        first = self.figures()
        time.sleep(0.5)
        return first if first[1:] == self.figures()[1:] else None

    def measure(self):
        while not self.ended.wait(0.01):
            self.most = tuple(map(max, self.most, self.figures()))

    def browse(self):
        while not self.ended.wait(0.05):
            begin = time.monotonic()
            while not self.ended.is_set() and not self.page_comes():
                self.slowest = max(self.slowest, time.monotonic() - begin)
            self.pages += not self.ended.is_set()
            self.slowest = max(self.slowest, time.monotonic() - begin)

    def page_comes(self):
        try:
            connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=patience)
            connection.request("GET", "/panel.js")
            return connection.getresponse().read().endswith(b"followVisibility();\n")
        except (OSError, http.client.HTTPException):
            return False

    def end(self, name):
        pages = self.pages
        served = pages > 0 or time.monotonic() - self.began < 2
        wait(lambda: self.pages > pages)
        self.ended.set()
        for thread in self.threads:
            thread.join()
        wait(lambda: all(now <= then for now, then in zip(self.figures()[1:], self.before[1:])))
        after = self.figures()
        self.process.terminate()
        status = self.process.wait(patience)
        print("%-40s %5.1f %5.1f %5.1f MiB %4d threads %4d files %6.2f s" %
              (name, self.before[0], self.most[0], after[0], *self.most[1:], self.slowest), flush=True)
        return served and self.most[0] - self.before[0] < mostGrowth and self.slowest < patience and status == 143

    def abandon(self):
        self.ended.set()
        self.process.kill()
        self.process.wait()

    def pins(self, *packets):
        client = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        client.connect("\0" + self.environment["PANELSIM_SOCKET"])
        client.settimeout(patience)
        for packet in packets:
            client.send(packet)
        if packets == (greeting,):
            client.recv(1000)
        return client

    def tool(self, *arguments):
        return subprocess.run([frontpanel, *arguments], env=self.environment, timeout=patience, capture_output=True)


def ask(client, *arguments, **more):
    client.send(request(*arguments, **more))
    return struct.unpack_from("=QIi", client.recv(1000))[0]


def tolerate(action, *arguments):
    try:
        action(*arguments)
        return True
    except OSError:
        return False


def page_clients(sim, text, count=1000, stay=8):
    clients = [socket.create_connection(("127.0.0.1", sim.port), timeout=patience) for _ in range(count)]
    for client in clients:
        tolerate(client.sendall, text.replace(b"HOST", b"Host: 127.0.0.1:%d" % sim.port))
    for _ in range(stay):
        time.sleep(1)
        if text.endswith(b"X-Slow: "):
            for client in clients:
                tolerate(client.send, b"a")
    return clients


def odd_packets(sim):
    for length in [*range(60), 1000, 200000]:
        for packets in ([bytes(length)], [greeting, bytes(length)], [greeting, request(create), bytes(length)]):
            tolerate(lambda: sim.pins(*packets).close())


def random_requests(sim):
    for _ in range(20):
        client = sim.pins(greeting)
        pin = ask(client, create)
        for _ in range(2000):
            operation, gpio, output, level, stamp = struct.unpack("=BBBBq", os.urandom(12))
            ask(client, operation % 8, pin, gpio % 70, output & 1, level & 1, stamp)


def unread_replies(sim):
    clients = [sim.pins(greeting) for _ in range(100)]
    for client in clients:
        client.setblocking(False)
        while tolerate(client.send, request(create)):
            pass
        tolerate(client.shutdown, socket.SHUT_WR)
    assert sim.tool("led", "1", "on").returncode == 0
    return clients


def silent_connections(sim):
    clients = [sim.pins() for _ in range(400)]
    wait(lambda: sim.tool("led", "1", "on").returncode == 0)
    return clients


def many_pins(sim):
    clients = [sim.pins(greeting) for _ in range(256)]
    for client in clients:
        for _ in range(200):
            ask(client, create)
    return clients


def death_in_a_cycle(sim):
    for strobe in (50, 51):  # read, write
        client = sim.pins(greeting)
        levels = {**{gpio: 1 for gpio in range(40, 52)}, 49: 0, strobe: 0}
        for gpio, level in levels.items():
            pin = ask(client, create)
            ask(client, export, pin, gpio)
            ask(client, init, pin, output=1, level=level, stamp=time.monotonic_ns())
        client.close()
        result = sim.tool("print", "Hello")
        assert result.returncode == 0 and b"WARNING" not in result.stdout, result


get = b"GET / HTTP/1.1\r\nHOST\r\n"
post = b"POST /keys HTTP/1.1\r\nHOST\r\nContent-Type: application/json\r\n"
events = get.replace(b"/ ", b"/events ", 1) + b"\r\n"
texts = {"idle": b"", "half a request line": b"GET / HT", "half a header": get + b"A", "slow": get + b"X-Slow: ",
         "half a body": post + b"Content-Length: 500\r\n\r\n{",
         "chunks": post + b"Transfer-Encoding: chunked\r\n\r\n5\r\n",
         "no close": get + b"\r\n", "event streams": events, "70 KB of header": get + b"a: b\r\n" * 12000,
         "1 MB of address": b"GET /" + b"a" * 2**20, "zeros": bytes(5000), "pipelined": (get + b"\r\n") * 100}
attacks = [("1000 page clients: " + name, "sleep 1000", lambda sim, text=text: page_clients(sim, text))
           for name, text in texts.items()]
attacks += [
    ("40 slow event streams of a log of zeros", "head -c 1000000000 /dev/zero | fold -w 1024; sleep 1000",
     lambda sim: page_clients(sim, events, 40, 10)),
    ("a log of 1 GB", "yes %s | head -c 1000000000; sleep 1000" % ("x" * 79), lambda sim: time.sleep(8)),
    ("a line of 1 GB", "head -c 1000000000 /dev/zero; sleep 1000", lambda sim: time.sleep(5)),
    ("pins: packets of all lengths", "sleep 1000", odd_packets),
    ("pins: random requests", "sleep 1000", random_requests),
    ("pins: replies that nobody reads", "sleep 1000", unread_replies),
    ("pins: connections that say nothing", "sleep 1000", silent_connections),
    ("pins: 20000 connections", "sleep 1000", lambda sim: [sim.pins(b"x").close() for _ in range(20000)] and None),
    ("pins: as many as there are", "sleep 1000", many_pins),
    ("pins: death in a bus cycle", "sleep 1000", death_in_a_cycle)]

failed = [word for word in sys.argv[3:] if not any(word in name for name, _, _ in attacks)]  # which nobody has
print("%-40s %s" % ("attack", "memory before, most, after; most threads, most files; longest time to an answer"))
for name, application, act in attacks:
    if len(sys.argv) == 3 or any(word in name for word in sys.argv[3:]):
        sim = Panelsim(application)
        try:
            clients = act(sim)
        except Exception as error:
            print("%s: %r" % (name, error), file=sys.stderr)
            failed.append(name)
        clients = None  # closes them
        try:
            if not sim.end(name):
                failed.append(name)
        except Exception as error:
            print("%s, afterwards: %r" % (name, error), file=sys.stderr)
            failed.append(name)
            sim.abandon()
sys.exit("abuse: failed: " + ", ".join(failed) if failed else 0)
