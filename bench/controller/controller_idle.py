#!/usr/bin/env python3
"""CPU and memory of the running program, serving but idle, with a 10,000-file library.

Run by hand after a build:  bench/controller/controller_idle.py [build] [seconds]
Makes a temporary home whose folders.txt shares 100 folders of 100 empty video files and
whose conversion-folders.txt names a folder tree with no videos, starts
build/bin/quillon-server there (offscreen, server running, bound to 127.0.0.1 on a free
custom port), waits until the library answers once and the program settles, then sends
nothing for <seconds> (default 60) and prints the CPU time of the whole process over that
time (utime+stime from /proc/<pid>/stat) as a share of one core, its resident memory, and
the threads that used the most. Ends the program with SIGTERM. Extra JVM options for a
comparison run go in QUILLON_BENCH_JVM_OPTIONS (e.g. -XX:-UsePerfData).
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


def ticks(stat_path):
    # Fields after the command name, which may itself hold spaces or parentheses.
    fields = open(stat_path).read().rsplit(")", 1)[1].split()
    return int(fields[11]) + int(fields[12])


def threads(pid):
    found = {}
    for tid in os.listdir(f"/proc/{pid}/task"):
        try:
            name = open(f"/proc/{pid}/task/{tid}/comm").read().strip()
            found[tid] = (name, ticks(f"/proc/{pid}/task/{tid}/stat"))
        except OSError:
            continue  # ended meanwhile
    return found


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
    hz = os.sysconf("SC_CLK_TCK")
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
            time.sleep(SETTLE_SECONDS)
            pid = program.pid
            before, threads_before = ticks(f"/proc/{pid}/stat"), threads(pid)
            time.sleep(seconds)
            after, threads_after = ticks(f"/proc/{pid}/stat"), threads(pid)
            rss = rss_kib(pid)
        finally:
            program.send_signal(signal.SIGTERM)
            code = program.wait(60)
    used = (after - before) / hz
    print(f"library {count} files; idle {seconds} s: {used * 1000:.0f} ms CPU, "
          f"{100 * used / seconds:.3f} % of a core; RSS {rss / 1024:.0f} MiB; exit {code}")
    busy = []
    for tid, (name, t) in threads_after.items():
        spent = t - threads_before.get(tid, (name, 0))[1]
        if spent:
            busy.append((spent, name, tid))
    for spent, name, tid in sorted(busy, reverse=True)[:12]:
        print(f"  {name:<20} {tid:>8}  {spent * 1000 // hz:>5} ms")


if __name__ == "__main__":
    main()
