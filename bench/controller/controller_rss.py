#!/usr/bin/env python3
"""Memory of the running program with a large folders file.

Run by hand after a build:  bench/controller/controller_rss.py [build] [entries]
Writes a folders.txt of <entries> (default 230,000) disk folders into a temporary home,
starts build/bin/quillon-server there (offscreen, first start, so the preferences window
opens and loads the list; the real server jar from build/resources, bound to 127.0.0.1 on
a free port), and prints the resident memory once started and settled, and the peak;
the same with an empty list for comparison. Ends each run with SIGTERM.
"""
import json
import os
import signal
import socket
import subprocess
import sys
import tempfile
import time

SETTLE_SECONDS = 8


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def status_kib(pid, field):
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith(field + ":"):
                return int(line.split()[1])
    return 0


def run(build, entries):
    with tempfile.TemporaryDirectory() as home:
        folder = os.path.join(home, "Library", "Application Support", "QuillonServer")
        os.makedirs(folder)
        folders = [{"name": f"Folder {i}", "type": "DiskFolder", "id": f"/srv/media/folder-{i:06d}",
                    "folderId": f"id-{i}"} for i in range(entries)]
        with open(os.path.join(folder, "folders.txt"), "w") as f:
            json.dump({"folders": folders}, f)
        size = os.path.getsize(os.path.join(folder, "folders.txt"))
        config = os.path.join(home, "config", "Quillon")
        os.makedirs(config)
        with open(os.path.join(config, "QuillonServer.conf"), "w") as f:
            f.write(f"ListenOnCustomPort=bool:true\nCustomPort=int:{free_port()}\n")
        runtime = os.path.join(home, "runtime")
        os.mkdir(runtime, 0o700)
        env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=os.path.join(home, "config"),
                   XDG_RUNTIME_DIR=runtime, QT_QPA_PLATFORM="offscreen",
                   JAVA_TOOL_OPTIONS="-Dquillon.bind.address=127.0.0.1")
        log = open(os.path.join(home, "log.txt"), "w+")
        start = time.time()
        program = subprocess.Popen([os.path.join(build, "bin", "quillon-server")], env=env,
                                   stdout=subprocess.DEVNULL, stderr=log)
        try:
            while "Server started on" not in open(log.name).read():
                if program.poll() is not None or time.time() - start > 120:
                    raise SystemExit("the program did not start:\n" + open(log.name).read())
                time.sleep(0.1)
            started = time.time() - start
            rss = 0
            end = time.time() + SETTLE_SECONDS
            while time.time() < end:
                rss = max(rss, status_kib(program.pid, "VmRSS"))
                time.sleep(0.5)
            settled = status_kib(program.pid, "VmRSS")
            peak = status_kib(program.pid, "VmHWM")
        finally:
            program.send_signal(signal.SIGTERM)
            code = program.wait(60)
        print(f"{entries:>7} entries ({size / 1e6:.1f} MB): started in {started:.1f} s, "
              f"RSS settled {settled / 1024:.0f} MiB, peak {peak / 1024:.0f} MiB, exit {code}")


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else "build"
    entries = int(sys.argv[2]) if len(sys.argv) > 2 else 230000
    run(build, 0)
    run(build, entries)


if __name__ == "__main__":
    main()
