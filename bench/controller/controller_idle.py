#!/usr/bin/env python3
"""CPU and memory of the running program, serving but idle, with a 10,000-file library.

Run by hand after a build:  bench/controller/controller_idle.py [build] [seconds]
Makes a temporary home whose folders.txt shares 100 folders of 100 empty video files and
whose conversion-folders.txt names a folder tree with no videos, starts
build/bin/quillon-server there (offscreen, server running, bound to 127.0.0.1 on a free
custom port), waits until the library answers once and the program settles, then sends
nothing for <seconds> (default 60) and prints the CPU time of the whole process over that
time as a share of one core, its resident memory, and the threads that used the most with
their wake-ups a second. Ends the program with SIGTERM. Extra JVM options for a comparison run
go in QUILLON_BENCH_JVM_OPTIONS (e.g. -XX:-UsePerfData).

The peer, measured over the same window: an empty JVM of the same runtime (`java` running a
class that only waits), the floor that any program hosting this JVM pays. CPU time is the
scheduler's own nanosecond count (/proc/<pid>/task/<tid>/schedstat), so short windows and
threads that wake briefly are not rounded to clock ticks.
"""
import json
import os
import signal
import socket
import subprocess
import sys
import tempfile
import time
import urllib.request

FOLDERS = 100
FILES_PER_FOLDER = 100
SETTLE_SECONDS = 40  # past the 30 s idle limit of the connection that asked for the library


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def switches(status_path):
    count = 0
    for line in open(status_path):
        if line.startswith(("voluntary_ctxt_switches:", "nonvoluntary_ctxt_switches:")):
            count += int(line.split()[1])
    return count


def threads(pid):
    """tid -> (name, nanoseconds on a CPU, context switches)."""
    found = {}
    for tid in os.listdir(f"/proc/{pid}/task"):
        task = f"/proc/{pid}/task/{tid}"
        try:
            name = open(f"{task}/comm").read().strip()
            found[tid] = (name, int(open(f"{task}/schedstat").read().split()[0]),
                          switches(f"{task}/status"))
        except (OSError, ValueError):
            continue  # ended meanwhile
    return found


def spent(before, after):
    """(ns, switches) per thread over the window, and the totals, threads born meanwhile included."""
    rows = []
    for tid, (name, ns, sw) in after.items():
        _, ns0, sw0 = before.get(tid, (name, 0, 0))
        rows.append((ns - ns0, sw - sw0, name, tid))
    return rows, sum(r[0] for r in rows), sum(r[1] for r in rows)


def empty_jvm(folder):
    """A JVM of the same runtime that only waits: the peer."""
    with open(os.path.join(folder, "Idle.java"), "w") as f:
        f.write("public class Idle { public static void main(String[] a) throws Exception {"
                " Thread.sleep(Long.MAX_VALUE); } }\n")
    subprocess.run(["javac", "-d", folder, os.path.join(folder, "Idle.java")], check=True)
    return subprocess.Popen(["java", "-cp", folder, "Idle"], stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL)


def rss_kib(pid):
    for line in open(f"/proc/{pid}/status"):
        if line.startswith("VmRSS:"):
            return int(line.split()[1])
    return 0


def make_home(home, port):
    app = os.path.join(home, "Library", "Application Support", "QuillonServer")
    media = os.path.join(home, "media")
    shared = []
    for f in range(FOLDERS):
        folder = os.path.join(media, f"folder-{f:03d}")
        os.makedirs(folder)
        for i in range(FILES_PER_FOLDER):
            open(os.path.join(folder, f"clip-{i:03d}.{('mp4', 'mkv', 'avi')[i % 3]}"), "w").close()
        shared.append({"name": f"Folder {f}", "type": "DiskFolder", "id": folder})
    inbox = os.path.join(home, "inbox")
    for sub in ("new", "old", os.path.join("old", "2019")):
        os.makedirs(os.path.join(inbox, sub))
    os.makedirs(app)
    with open(os.path.join(app, "folders.txt"), "w") as f:
        json.dump({"folders": shared}, f)
    with open(os.path.join(app, "conversion-folders.txt"), "w") as f:
        json.dump({"folders": [{"name": "Inbox", "id": inbox}]}, f)
    config = os.path.join(home, "config", "Quillon")
    os.makedirs(config)
    with open(os.path.join(config, "QuillonServer.conf"), "w") as f:
        f.write(f"hasBeenRun=bool:true\nserverRunning=bool:true\n"
                f"ListenOnCustomPort=bool:true\nCustomPort=int:{port}\n")


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else "build"
    seconds = int(sys.argv[2]) if len(sys.argv) > 2 else 60
    with tempfile.TemporaryDirectory() as home:
        port = free_port()
        make_home(home, port)
        runtime = os.path.join(home, "runtime")
        os.mkdir(runtime, 0o700)
        env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=os.path.join(home, "config"),
                   XDG_RUNTIME_DIR=runtime, XDG_CACHE_HOME=os.path.join(home, "cache"),
                   QT_QPA_PLATFORM="offscreen", JAVA_TOOL_OPTIONS=" ".join(
                       ["-Dquillon.bind.address=127.0.0.1", os.environ.get("QUILLON_BENCH_JVM_OPTIONS", "")]))
        log = open(os.path.join(home, "log.txt"), "w+")
        program = subprocess.Popen([os.path.join(build, "bin", "quillon-server")], env=env,
                                   stdout=log, stderr=subprocess.STDOUT)
        try:
            deadline = time.time() + 120
            while True:
                if program.poll() is not None or time.time() > deadline:
                    raise SystemExit("the program did not serve:\n" + open(log.name).read()[-4000:])
                try:
                    with urllib.request.urlopen(f"http://127.0.0.1:{port}/api/library", timeout=10) as r:
                        count = sum(s["count"] for s in json.load(r)["sections"])
                    if count >= FOLDERS * FILES_PER_FOLDER:
                        break
                except OSError:
                    pass
                time.sleep(0.5)
            peer = empty_jvm(home)
            time.sleep(SETTLE_SECONDS)
            pid = program.pid
            before, peer_before = threads(pid), threads(peer.pid)
            time.sleep(seconds)
            after, peer_after = threads(pid), threads(peer.pid)
            rss = rss_kib(pid)
        finally:
            program.send_signal(signal.SIGTERM)
            code = program.wait(60)
            if "peer" in locals():
                peer.kill()
                peer.wait()
    rows, ns, wakes = spent(before, after)
    _, peer_ns, peer_wakes = spent(peer_before, peer_after)
    print(f"library {count} files; idle {seconds} s: {ns / 1e6:.0f} ms CPU, "
          f"{ns / 1e7 / seconds:.3f} % of a core, {wakes / seconds:.1f} wake-ups/s; "
          f"RSS {rss / 1024:.0f} MiB; exit {code}")
    print(f"peer, an empty JVM over the same {seconds} s: {peer_ns / 1e6:.0f} ms CPU, "
          f"{peer_ns / 1e7 / seconds:.3f} % of a core, {peer_wakes / seconds:.1f} wake-ups/s; "
          f"ratio {ns / max(peer_ns, 1):.2f}x")
    for used, woke, name, tid in sorted(rows, reverse=True)[:12]:
        if used:
            print(f"  {name:<20} {tid:>8}  {used / 1e6:>7.1f} ms  {woke / seconds:>5.1f}/s")


if __name__ == "__main__":
    main()
