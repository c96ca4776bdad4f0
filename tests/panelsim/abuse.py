#!/usr/bin/env python3
"""Drives panelsim as no proper client does, and measures it from outside: abuse.py PANELSIM FRONTPANEL

Fails when memory exceeds 48 MiB, when the page or a pin is not served meanwhile, or when the end takes over 10 s.
"""
import os, re, socket, subprocess, sys, tempfile, time, urllib.request

panelsim, frontpanel = (os.path.abspath(program) for program in sys.argv[1:3])


def ask_for_ranges(port, environment):
    """400 requests with a header of 8 KB"""
    text = "GET / HTTP/1.1\r\nHost: 127.0.0.1:%d\r\nRange: bytes=%s\r\n\r\n" % (port, ",".join(["0-1"] * 2000))
    clients = [socket.create_connection(("127.0.0.1", port), 10) for _ in range(100)]
    for i in range(400):
        try:
            clients[i % 100].sendall(text.encode())
        except OSError:
            pass  # closed by a server that has had enough


def take_places(port, environment):
    """272 silent connections of another user to the pins"""
    code = """import os, socket, time
os.getuid() or os.setuid(65534)
clients = [socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) for _ in range(272)]
for client in clients:
    client.settimeout(1)
    try: client.connect("\\0" + os.environ["PANELSIM_SOCKET"])
    except OSError: pass
print("there", flush=True)
time.sleep(60)"""
    own = {name: value for name, value in environment.items() if name != "LD_PRELOAD"}
    process = subprocess.Popen([sys.executable, "-c", code], env=own, stdout=subprocess.PIPE)
    process.stdout.readline()
    return process


for attack in (ask_for_ranges, take_places):
    with tempfile.TemporaryDirectory() as folder:
        script = "env -0 >%s/new; mv %s/new %s/environment; echo ready; exec sleep 1000" % (folder, folder, folder)
        process = subprocess.Popen([panelsim, "--http", "127.0.0.1:0", "--", "sh", "-c", script],
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        port = int(re.search(rb"127\.0\.0\.1:(\d+)/", process.stderr.readline()).group(1))
        process.stdout.readline()
        lines = open(folder + "/environment").read().split("\0")
        environment = dict(line.split("=", 1) for line in lines if line)
        client = attack(port, environment)
        page = urllib.request.urlopen("http://127.0.0.1:%d/" % port, timeout=10).status
        pin = subprocess.run([frontpanel, "led", "1", "on"], env=environment, timeout=10).returncode
        memory = int(re.search(r"VmHWM:\s+(\d+)", open("/proc/%d/status" % process.pid).read()).group(1)) / 1024
        process.terminate()
        process.wait(10)
        if client:
            client.kill()
        print("%-56s %5.1f MiB" % (attack.__doc__, memory), flush=True)
        if page != 200 or pin != 0 or memory > 48:
            sys.exit("abuse: failed")
