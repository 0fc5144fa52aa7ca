#!/usr/bin/env python3
"""Direct play and library listing figures of the server jar, against Debian's nginx.

Run by hand after a build:  bench/server/bench_server.py [build/resources/QuillonServer.jar]
Everything listens on 127.0.0.1 only and lives in a temporary folder that is removed.
Prints: single-client throughput of a 1 GiB file (curl, best of 3) for both servers; 100
concurrent clients doing ranged reads (errors, time-to-first-byte percentiles) for both;
the library API's first and later listings over 10,000 files in 100 folders; and the
server's CPU use while idle with that library.
"""
import asyncio
import json
import os
import random
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.request

GIB = 1 << 30
CLIENTS = 100
REQUESTS_PER_CLIENT = 5
RANGE_BYTES = 1 << 20
IDLE_SECONDS = 60
SETTLE_SECONDS = 60
ROUNDS = 3


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_port(port, seconds=20):
    end = time.time() + seconds
    while time.time() < end:
        try:
            socket.create_connection(("127.0.0.1", port), 0.2).close()
            return
        except OSError:
            time.sleep(0.05)
    raise SystemExit(f"nothing listens on {port}")


def get(url):
    with urllib.request.urlopen(url, timeout=30) as r:
        return r.read()


def make_big_file(path):
    # Random bytes in 64 MiB blocks: nothing compressible, no page of zeros.
    block = os.urandom(64 << 20)
    with open(path, "wb") as f:
        for _ in range(GIB // len(block)):
            f.write(block)


def start_nginx(root, tmp):
    port = free_port()
    conf = os.path.join(tmp, "nginx.conf")
    with open(conf, "w") as f:
        f.write(f"""daemon off; worker_processes auto; pid {tmp}/nginx.pid; error_log {tmp}/nginx-error.log;
events {{ worker_connections 1024; }}
http {{ access_log off; sendfile on; tcp_nopush on; keepalive_requests 100000;
  client_body_temp_path {tmp}/nb; proxy_temp_path {tmp}/np; fastcgi_temp_path {tmp}/nf;
  uwsgi_temp_path {tmp}/nu; scgi_temp_path {tmp}/ns;
  server {{ listen 127.0.0.1:{port}; root {root}; }} }}
""")
    proc = subprocess.Popen(["nginx", "-c", conf, "-p", tmp], stderr=subprocess.DEVNULL)
    wait_port(port)
    return proc, port


def start_server(jar, app, tmp):
    port = free_port()
    proc = subprocess.Popen(["java", "-Dquillon.bind.address=127.0.0.1", f"-Dquillon.application.folder={app}",
                             f"-Dquillon.cache.folder={tmp}/cache", "-jar", jar, "serve", str(port)],
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    line = proc.stdout.readline()
    if not line.startswith("Server started on"):
        raise SystemExit("server did not start: " + line)
    return proc, port


def share(app, folders):
    entries = [{"name": os.path.basename(p), "type": "DiskFolder", "id": p} for p in folders]
    with open(os.path.join(app, "folders.txt"), "w") as f:
        json.dump({"folders": entries}, f)


def curl_speed(url):
    best = 0.0
    for _ in range(3):
        out = subprocess.run(["curl", "-s", "-o", "/dev/null", "-w", "%{http_code} %{size_download} %{speed_download}",
                              url], capture_output=True, text=True, check=True).stdout.split()
        if out[0] != "200" or int(out[1]) != GIB:
            raise SystemExit(f"bad transfer from {url}: {out}")
        best = max(best, float(out[2]))
    return best


async def ranged_client(port, path, size, ttfb, errors):
    reader, writer = await asyncio.open_connection("127.0.0.1", port)
    try:
        for _ in range(REQUESTS_PER_CLIENT):
            start = random.randrange(0, size - RANGE_BYTES)
            end = start + RANGE_BYTES - 1
            began = time.perf_counter()
            writer.write(f"GET {path} HTTP/1.1\r\nHost: x\r\nRange: bytes={start}-{end}\r\n\r\n".encode())
            await writer.drain()
            status = await reader.readline()
            ttfb.append(time.perf_counter() - began)
            length = None
            while True:
                line = await reader.readline()
                if line in (b"\r\n", b""):
                    break
                name, _, value = line.decode().partition(":")
                if name.lower() == "content-length":
                    length = int(value)
            body = await reader.readexactly(length or 0)
            if b" 206 " not in status or length != RANGE_BYTES or len(body) != RANGE_BYTES:
                errors.append(status)
    except (OSError, asyncio.IncompleteReadError) as e:
        errors.append(repr(e))
    finally:
        writer.close()


async def concurrent(port, path, size):
    ttfb, errors = [], []
    began = time.perf_counter()
    await asyncio.gather(*(ranged_client(port, path, size, ttfb, errors) for _ in range(CLIENTS)))
    took = time.perf_counter() - began
    ttfb.sort()
    pick = lambda q: ttfb[min(len(ttfb) - 1, int(q * len(ttfb)))] * 1000
    return {"errors": len(errors), "p50_ms": pick(0.5), "p99_ms": pick(0.99), "max_ms": ttfb[-1] * 1000,
            "MiB_per_s": CLIENTS * REQUESTS_PER_CLIENT * RANGE_BYTES / took / (1 << 20)}


def cpu_seconds(pid):
    fields = open(f"/proc/{pid}/stat").read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def rss_mib(pid):
    for line in open(f"/proc/{pid}/status"):
        if line.startswith("VmRSS:"):
            return int(line.split()[1]) / 1024
    return 0


def fmt(result):
    return ", ".join(f"{k} {v:.1f}" if isinstance(v, float) else f"{k} {v}" for k, v in result.items())


def timed(url):
    began = time.perf_counter()
    body = get(url)
    return (time.perf_counter() - began) * 1000, json.loads(body)


def main():
    jar = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "../../build/resources/QuillonServer.jar")
    jar = os.path.abspath(jar)
    tmp = tempfile.mkdtemp(prefix="quillon-bench-")
    os.chmod(tmp, 0o755)  # nginx's workers may run as another user
    procs = []
    try:
        media = os.path.join(tmp, "media")
        app = os.path.join(tmp, "app")
        os.makedirs(media)
        os.makedirs(app)
        big = os.path.join(media, "big.mp4")
        make_big_file(big)
        share(app, [media])
        nginx, nport = start_nginx(media, tmp)
        procs.append(nginx)
        server, qport = start_server(jar, app, tmp)
        procs.append(server)
        lib = json.loads(get(f"http://127.0.0.1:{qport}/api/library"))
        section = json.loads(get(f"http://127.0.0.1:{qport}/api/sections/{lib['sections'][0]['id']}"))
        item = section["items"][0]["stream"]
        get_all = lambda port, path: subprocess.run(["curl", "-s", "-o", "/dev/null", f"http://127.0.0.1:{port}{path}"])
        get_all(nport, "/big.mp4"), get_all(qport, item)  # page cache and JIT warm

        n_speed, q_speed = curl_speed(f"http://127.0.0.1:{nport}/big.mp4"), curl_speed(f"http://127.0.0.1:{qport}{item}")
        print(f"1 GiB over loopback, curl, best of 3: nginx {n_speed / (1 << 20):.0f} MiB/s, "
              f"server {q_speed / (1 << 20):.0f} MiB/s, ratio {q_speed / n_speed:.2f}")

        asyncio.run(concurrent(qport, item, GIB))  # warm
        asyncio.run(concurrent(nport, "/big.mp4", GIB))
        # Rounds alternate between the two, so that a busy moment of the machine hits both.
        n_p99, q_p99 = [], []
        for _ in range(ROUNDS):
            n = asyncio.run(concurrent(nport, "/big.mp4", GIB))
            q = asyncio.run(concurrent(qport, item, GIB))
            n_p99.append(n["p99_ms"])
            q_p99.append(q["p99_ms"])
            print(f"{CLIENTS} clients x {REQUESTS_PER_CLIENT} ranges of 1 MiB: nginx {fmt(n)}")
            print(f"{CLIENTS} clients x {REQUESTS_PER_CLIENT} ranges of 1 MiB: server {fmt(q)}")
        print(f"p99 time to first byte, median of {ROUNDS} rounds: nginx {statistics.median(n_p99):.1f} ms, "
              f"server {statistics.median(q_p99):.1f} ms, ratio {statistics.median(q_p99) / statistics.median(n_p99):.2f}")
        server.terminate()
        server.wait(10)
        procs.remove(server)

        # Library: 10,000 files in 100 folders, the server started fresh on them.
        lib_root = os.path.join(tmp, "library")
        for i in range(100):
            d = os.path.join(lib_root, f"folder {i:03}")
            os.makedirs(d)
            for j in range(100):
                open(os.path.join(d, f"video {j:03}.mkv"), "wb").close()
        share(app, [lib_root])
        server, qport = start_server(jar, app, tmp)
        procs.append(server)
        first, lib = timed(f"http://127.0.0.1:{qport}/api/library")
        count = lib["sections"][0]["count"]
        sid = lib["sections"][0]["id"]
        top_first, top = timed(f"http://127.0.0.1:{qport}/api/sections/{sid}")
        fid = top["folders"][0]["id"]
        folder_first, folder = timed(f"http://127.0.0.1:{qport}/api/sections/{sid}/{fid}")
        later = {"library": [], "section": [], "folder": []}
        for _ in range(20):
            later["library"].append(timed(f"http://127.0.0.1:{qport}/api/library")[0])
            later["section"].append(timed(f"http://127.0.0.1:{qport}/api/sections/{sid}")[0])
            later["folder"].append(timed(f"http://127.0.0.1:{qport}/api/sections/{sid}/{fid}")[0])
        print(f"library of {count} files in {len(top['folders'])} folders: first /api/library {first:.0f} ms "
              f"(scan included), first section {top_first:.0f} ms, first folder of {len(folder['items'])} items "
              f"{folder_first:.0f} ms")
        for k, v in later.items():
            print(f"  later {k} listings (20): median {statistics.median(v):.1f} ms, max {max(v):.1f} ms")

        # Idle: no request for a while; the server's CPU time over that span, and its memory.
        # First the background ffprobe runs the listings asked for (100 items) are let finish.
        time.sleep(SETTLE_SECONDS)
        before = cpu_seconds(server.pid)
        time.sleep(IDLE_SECONDS)
        used = cpu_seconds(server.pid) - before
        print(f"idle {IDLE_SECONDS} s with that library: {100 * used / IDLE_SECONDS:.3f} % of a core, "
              f"RSS {rss_mib(server.pid):.0f} MiB")
    finally:
        for p in procs:
            p.terminate()
            try:
                p.wait(10)
            except subprocess.TimeoutExpired:
                p.kill()
        shutil.rmtree(tmp, ignore_errors=True)


if __name__ == "__main__":
    main()
