#!/usr/bin/env python3
"""Drives panelsim as no proper client does, and measures it from outside: abuse.py PANELSIM FRONTPANEL [WORD...]

Prints a line for each attack (all, or those with one of the words in their name): most memory, threads and open files.
Fails when memory exceeds mostMemory, when the page or a pin is not served meanwhile, or the end takes over 10 s.
"""
import os
import re
import socket
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request

mostMemory = 48  # MiB
patience = 10  # seconds
panelsim, frontpanel = (os.path.abspath(program) for program in sys.argv[1:3])


def wait(condition):
    deadline = time.monotonic() + patience
    while not (found := condition()):
        if time.monotonic() > deadline:
            raise RuntimeError("nothing happened for %d s" % patience)
        time.sleep(0.02)
    return found


def figures(pid):
    status = open("/proc/%d/status" % pid).read()
    memory, threads = (int(re.search(name + r":\s+(\d+)", status).group(1)) for name in ("VmHWM", "Threads"))
    return memory / 1024, threads, len(os.listdir("/proc/%d/fd" % pid))


def requests(port, environment):
    text = "GET / HTTP/1.1\r\nHost: 127.0.0.1:%d\r\nRange: bytes=%s\r\n\r\n" % (port, ",".join(["0-1"] * 2000))
    clients = [socket.create_connection(("127.0.0.1", port), patience) for _ in range(100)]
    for i in range(400):
        try:
            clients[i % 100].sendall(text.encode())
        except OSError:
            pass  # closed by a server that has had enough
    return []


def streams(port, environment):
    text = "GET /events HTTP/1.1\r\nHost: 127.0.0.1:%d\r\n\r\n" % port
    clients = [socket.create_connection(("127.0.0.1", port), patience) for _ in range(30)]
    for client in clients:
        client.sendall(text.encode())
    time.sleep(3)
    return clients


def silent(port, environment):
    code = """if True:
        import os, socket, sys, time
        os.getuid() or os.setuid(65534)
        clients = [socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) for _ in range(272)]
        for client in clients:
            client.settimeout(1)
            try:
                client.connect("\\0" + os.environ["PANELSIM_SOCKET"])
            except OSError:
                pass
        print("there", flush=True)
        time.sleep(1000)"""
    own = {name: value for name, value in environment.items() if name != "LD_PRELOAD"}
    process = subprocess.Popen([sys.executable, "-c", code], env=own, stdout=subprocess.PIPE)
    process.stdout.readline()
    return [process]


attacks = {"400 requests with 8 KB of ranges": ("", requests),
           "30 event streams that are not read": ("yes %s | head -c 300000000 &" % ("x" * 79), streams),
           "a line of 300 MB": ("head -c 300000000 /dev/zero &", lambda *_: time.sleep(3) or []),
           "272 silent connections to pins": ("", silent)}
failed = [word for word in sys.argv[3:] if not any(word in name for name in attacks)]  # which nobody has
for name, (command, act) in attacks.items():
    if len(sys.argv) > 3 and not any(word in name for word in sys.argv[3:]):
        continue
    with tempfile.TemporaryDirectory() as folder:
        script = "env >%s/made; mv %s/made %s/environment; %s exec sleep 1000" % (folder, folder, folder, command)
        process = subprocess.Popen([panelsim, "--http", "127.0.0.1:0", "--", "sh", "-c", script],
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        try:
            port = int(re.search(rb"127\.0\.0\.1:(\d+)/", process.stderr.readline()).group(1))
            threading.Thread(target=process.stderr.read, daemon=True).start()
            wait(lambda: os.path.exists(folder + "/environment"))
            lines = open(folder + "/environment").read().splitlines()
            environment = {**os.environ, **dict(line.split("=", 1) for line in lines if "=" in line)}
            clients = act(port, environment)
            page = urllib.request.urlopen("http://127.0.0.1:%d/" % port, timeout=patience).status
            pin = subprocess.run([frontpanel, "led", "1", "on"], env=environment, timeout=patience).returncode
            memory, threads, files = figures(process.pid)
            process.terminate()
            process.wait(patience)
            print("%-36s %5.1f MiB %3d threads %4d files" % (name, memory, threads, files), flush=True)
            if page != 200 or pin != 0 or memory > mostMemory:
                failed.append(name)
            for client in clients:
                client.kill() if isinstance(client, subprocess.Popen) else client.close()
        except Exception as error:
            print("%s: %r" % (name, error), file=sys.stderr)
            failed.append(name)
            process.kill()
sys.exit("abuse: failed: " + ", ".join(failed) if failed else 0)
