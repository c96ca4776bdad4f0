"""An application that lets 400 requests with an 8 KB header loose on the panelsim that runs it, and 272 silent connections
of another user: abuse.py PORT FRONTPANEL. Fails when a pin or the page is not served then, or memory exceeds 48 MiB."""
import os, re, socket, subprocess, sys, urllib.request

address = "127.0.0.1", int(sys.argv[1])
request = b"GET / HTTP/1.1\r\nHost: 127.0.0.1:%d\r\nRange: bytes=%s\r\n\r\n" % (address[1], b",".join([b"0-1"] * 2000))
clients = [socket.create_connection(address, 10) for _ in range(100)]
for i in range(400):
    try:
        clients[i % 100].sendall(request)
    except OSError:
        pass  # closed by a server that has had enough
page = urllib.request.urlopen("http://127.0.0.1:%d/" % address[1], timeout=10).status
os.getuid() or os.seteuid(65534)
for _ in range(272):
    clients.append(socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET))
    clients[-1].setblocking(False)
    clients[-1].connect_ex("\0" + os.environ["PANELSIM_SOCKET"])
os.seteuid(os.getuid())
pin = subprocess.run([sys.argv[2], "led", "1", "on"], timeout=10).returncode
memory = int(re.search(r"VmHWM:\s+(\d+)", open("/proc/%d/status" % os.getppid()).read()).group(1)) / 1024
print("abuse: %.1f MiB" % memory, flush=True)
sys.exit(0 if page == 200 and pin == 0 and memory < 48 else 1)
