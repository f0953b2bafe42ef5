"""Runs the contenders of the benchmarks round by round, each beside its peers, and tells the medians of their ratios.

Every round runs all contenders of a benchmark one after the other, so that a slow minute of the machine strikes them
alike. A target is a ratio; whether it is met is printed, never enforced: a busy machine is no failure of the code.
"""

import argparse
import json
import os
import re
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BIN = os.path.join(ROOT, "build", "release", "bin")
LARGE = 1 << 20


def program(name):
    return os.path.join(BIN, name)


class Folder:
    """An empty folder on the file system of the build, removed at the end."""

    def __enter__(self):
        self.path = tempfile.mkdtemp(prefix="bench-", dir=os.path.join(ROOT, "build"))
        return self.path

    def __exit__(self, *_):
        shutil.rmtree(self.path, ignore_errors=True)


def measure(*command):
    """The last line of a round's output, which is JSON."""
    out = subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
    return json.loads(out.strip().splitlines()[-1])


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def ask(port, path="/"):
    """The status of one GET, or None when nobody listens yet."""
    try:
        with socket.create_connection(("127.0.0.1", port), timeout=5) as link:
            link.sendall(f"GET {path} HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\nConnection: close\r\n\r\n".encode())
            answer = link.recv(64)
            return int(answer.split()[1]) if answer.startswith(b"HTTP/") else None
    except OSError:
        return None


class Server:
    """A program that serves until the end of the block."""

    def __init__(self, port, *command, environment=None, path="/"):
        self.port, self.command, self.path = port, command, path
        self.environment = dict(os.environ, **(environment or {}))

    def __enter__(self):
        self.began = time.monotonic()
        self.process = subprocess.Popen(self.command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL, env=self.environment)
        while ask(self.port, self.path) is None:
            if self.process.poll() is not None or time.monotonic() - self.began > 30:
                raise RuntimeError(f"{self.command[0]} does not serve")
        self.first_answer = time.monotonic() - self.began
        return self

    def resident_megabytes(self):
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            return int(re.search(r"VmRSS:\s+(\d+)", status.read()).group(1)) / 1024

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


def hub(home, port):
    environment = {"HOME": home, "XDG_DATA_HOME": "", "XDG_CONFIG_HOME": "", "XDG_RUNTIME_DIR": home}
    return Server(port, program("localhub"), "-port", str(port), environment=environment, path="/api")


def wrk(port, path, seconds, connections):
    """Requests a second, and how many of them failed."""
    out = subprocess.run(["wrk", "-t1", f"-c{connections}", f"-d{seconds}s", f"http://127.0.0.1:{port}{path}"],
                         check=True, stdout=subprocess.PIPE, text=True).stdout
    bad = re.search(r"Non-2xx or 3xx responses: (\d+)", out)
    if bad:
        raise RuntimeError(f"{bad.group(1)} bad answers of port {port}{path}")
    return float(re.search(r"Requests/sec:\s+([\d.]+)", out).group(1))


class Results:
    def __init__(self):
        self.lines = []

    def tell(self, title, rows, targets):
        """rows: name -> (values of the rounds, unit); targets: (text, ours, peer, least ratio of peer to ours)."""
        print(f"\n{title}")
        self.lines += ["", f"## {title}", "", "| contender | median | lowest | highest |", "|---|---|---|---|"]
        for name, (values, unit) in rows.items():
            low, mid, high = min(values), statistics.median(values), max(values)
            print(f"  {name:34} {mid:10.3f} {unit:8} ({low:.3f} to {high:.3f})")
            self.lines.append(f"| {name} | {mid:.3f} {unit} | {low:.3f} | {high:.3f} |")
        self.lines += ["", "| target | measured | met |", "|---|---|---|"]
        for text, ratio, met in targets:
            print(f"    {'met   ' if met else 'MISSED'} {text}: {ratio:.2f}")
            self.lines.append(f"| {text} | {ratio:.2f} | {'yes' if met else 'no'} |")


def at_least(text, ratio, least):
    return (text, ratio, ratio >= least)


def at_most(text, ratio, most):
    return (text, ratio, ratio <= most)


def ratio(rows, name, peer):
    """The median of the rounds' ratios: both sides of one ran in the same minutes."""
    return statistics.median(ours / theirs for ours, theirs in zip(rows[name][0], rows[peer][0]))


def fast_import(stream):
    with Folder() as folder:
        subprocess.run(["git", "init", "-q", "--bare", folder], check=True)
        with open(stream, "rb") as commands:
            begin = time.monotonic()
            subprocess.run(["git", "-C", folder, "fast-import", "--quiet", "--done"], stdin=commands, check=True,
                           stdout=subprocess.DEVNULL)
            return time.monotonic() - begin


def in_folder(name, *arguments):
    with Folder() as folder:
        return measure(program(name), folder, *[str(argument) for argument in arguments])


class Stream:
    """A file that holds the commit for git fast-import."""

    def __init__(self, assets):
        self.assets = assets

    def __enter__(self):
        self.file = tempfile.NamedTemporaryFile(dir=os.path.join(ROOT, "build"))
        subprocess.run([program("fast_import_stream"), str(self.assets)], stdout=self.file, check=True)
        self.file.flush()
        return self.file.name

    def __exit__(self, *_):
        self.file.close()


def bench_store(results, quick):
    for assets in (10000,) if quick else (10000, 100000):
        with Stream(assets) as stream:
            times = {"ProjectBox": [], "git fast-import": [], "libgit2, default store": [], "bare SQLite": []}
            peaks, sizes = [], []
            for number in range(3):
                ours = in_folder("box_round", assets, 0)
                times["ProjectBox"].append(ours["seconds"])
                peaks.append(ours["peak"])
                sizes.append(ours["megabytes"])
                times["bare SQLite"].append(in_folder("sqlite_round", assets)["seconds"])
                if number > 0 and assets > 10000:
                    continue  # these two take minutes, and are told by far
                times["git fast-import"].append(fast_import(stream))
                times["libgit2, default store"].append(in_folder("libgit2_round", assets, 0)["seconds"])
            rows = {name: (values, "s") for name, values in times.items()}
            rows["most memory of ProjectBox"] = (peaks, "MB")
            rows["session on disk"] = (sizes, "MB")
            results.tell(f"One durable commit of {assets} assets", rows, [
                at_least("times faster than git fast-import (5)", ratio(rows, "git fast-import", "ProjectBox"), 5),
                at_least("times faster than libgit2's default store (10)",
                         ratio(rows, "libgit2, default store", "ProjectBox"), 10),
                at_most("times the time of bare SQLite (2)", ratio(rows, "ProjectBox", "bare SQLite"), 2)])


def bench_edit(results, quick):
    assets, edits = (10000, 300) if quick else (100000, 1000)
    rows = {"ProjectBox, p50": ([], "ms"), "ProjectBox, p99": ([], "ms"), "ProjectBox, max": ([], "ms"),
            "libgit2 synced, p50": ([], "ms"), "bytes stored a commit": ([], "KB")}
    for _ in range(1 if quick else 2):
        ours = in_folder("box_round", assets, edits)
        for part in ("p50", "p99", "max"):
            rows[f"ProjectBox, {part}"][0].append(ours[part])
        rows["bytes stored a commit"][0].append(ours["bytes_a_commit"] / 1000)
        rows["libgit2 synced, p50"][0].append(in_folder("libgit2_round", assets, edits // 2)["p50"])
    results.tell(f"One asset of {assets} edited and committed, durable", rows, [
        at_least("times faster than libgit2's default store, synced (5)",
                 ratio(rows, "libgit2 synced, p50", "ProjectBox, p50"), 5),
        at_most("p99 in p50s (3)", ratio(rows, "ProjectBox, p99", "ProjectBox, p50"), 3)])


def bench_form(results, quick):
    assets = 10000 if quick else 100000
    rows = {"hub over HTTP": ([], "s"), "git fast-import": ([], "s"), "memory of the hub after it": ([], "MB")}
    with Stream(assets) as stream:
        for _ in range(3):
            with Folder() as home, hub(home, free_port()) as server:
                rows["hub over HTTP"][0].append(
                    measure(program("form_round"), str(server.port), str(assets))["seconds"])
                rows["memory of the hub after it"][0].append(server.resident_megabytes())
            rows["git fast-import"][0].append(fast_import(stream))
    results.tell(f"One durable commit of {assets} assets in bulk forms over HTTP", rows, [
        at_least("times faster than git fast-import (3)",
                 ratio(rows, "git fast-import", "hub over HTTP"), 3)])


def bench_locators(results, quick):
    count, rounds = (20000, 3) if quick else (20000, 9)
    parts = {"add": "batch added", "replace": "batch replaced", "read": "read back after a count", "p50": "one edit, p50"}
    rows = {f"{who}, {text}": ([], "ms") for text in parts.values() for who in ("ProjectBox", "bare SQLite")}
    for _ in range(rounds):
        for who, name in (("ProjectBox", "locators_round"), ("bare SQLite", "sqlite_locators_round")):
            measured = in_folder(name, count)
            for part, text in parts.items():
                rows[f"{who}, {text}"][0].append(measured[part])
    results.tell(f"{count} media locators in one batch", rows, [
        at_most(f"times the time of bare SQLite, {parts[part]} (2)",
                ratio(rows, f"ProjectBox, {parts[part]}", f"bare SQLite, {parts[part]}"), 2)
        for part in ("add", "replace", "read")])


NGINX = """
worker_processes 1; daemon off; pid {folder}/pid; error_log {folder}/error.log;
events {{ worker_connections 1024; }}
http {{
  access_log off; sendfile on; tcp_nopush on; keepalive_requests 100000000;
  open_file_cache max=100 inactive=1h; default_type application/json;
  client_body_temp_path {folder}; proxy_temp_path {folder}; fastcgi_temp_path {folder};
  uwsgi_temp_path {folder}; scgi_temp_path {folder};
  server {{ listen 127.0.0.1:{port}; root {folder}; }}
}}
"""


def fetch(port, path):
    with socket.create_connection(("127.0.0.1", port)) as link:
        link.sendall(f"GET {path} HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\nConnection: close\r\n\r\n".encode())
        answer = b""
        while chunk := link.recv(1 << 16):
            answer += chunk
    return answer.split(b"\r\n\r\n", 1)[1]


def bench_get(results, quick):
    seconds, rounds = (1, 5) if quick else (2, 11)
    with Folder() as home, Folder() as folder, hub(home, free_port()) as ours:
        out = subprocess.run([program("form_round"), str(ours.port), "100", str(LARGE)], check=True,
                             stdout=subprocess.PIPE, text=True).stdout
        small, large = out.split()[-2:]
        for name, path in (("small", small), ("large", large)):
            with open(os.path.join(folder, name), "wb") as file:
                file.write(fetch(ours.port, path))
        size = os.path.getsize(os.path.join(folder, "small"))
        nginx_port, beast_port = free_port(), free_port()
        os.chmod(folder, 0o755)
        with open(os.path.join(folder, "nginx.conf"), "w", encoding="ascii") as config:
            config.write(NGINX.format(folder=folder, port=nginx_port))
        nginx = Server(nginx_port, "nginx", "-c", os.path.join(folder, "nginx.conf"))
        beast = Server(beast_port, program("BareBeastServer"), str(beast_port), str(size))
        with nginx, beast:
            rows = {name: ([], "1/s") for name in ("hub, small", "bare Beast, small", "nginx, small",
                                                   "hub, 1 MB", "nginx, 1 MB")}
            for _ in range(rounds):
                rows["hub, small"][0].append(wrk(ours.port, small, seconds, 16))
                rows["bare Beast, small"][0].append(wrk(beast_port, "/", seconds, 16))
                rows["nginx, small"][0].append(wrk(nginx_port, "/small", seconds, 16))
                rows["hub, 1 MB"][0].append(wrk(ours.port, large, seconds, 4))
                rows["nginx, 1 MB"][0].append(wrk(nginx_port, "/large", seconds, 4))
    results.tell(f"GET of an asset ({size} bytes) and of an enclosure of 1 MB", rows, [
        at_least("of the requests a second of bare Beast (0.6)",
                 ratio(rows, "hub, small", "bare Beast, small"), 0.6),
        at_least("times nginx, small (1)", ratio(rows, "hub, small", "nginx, small"), 1),
        at_least("times nginx, 1 MB (1)", ratio(rows, "hub, 1 MB", "nginx, 1 MB"), 1)])


def bench_start(results, quick):
    rows = {"hub, first answer": ([], "ms"), "minimal program, first answer": ([], "ms"),
            "hub, resident": ([], "MB"), "minimal program, resident": ([], "MB")}
    for _ in range(5 if quick else 20):
        with Folder() as home, hub(home, free_port()) as ours:
            rows["hub, first answer"][0].append(1000 * ours.first_answer)
            rows["hub, resident"][0].append(ours.resident_megabytes())
        port = free_port()
        with Folder() as folder, Server(port, program("MinimalProgram"), folder, str(port)) as minimal:
            rows["minimal program, first answer"][0].append(1000 * minimal.first_answer)
            rows["minimal program, resident"][0].append(minimal.resident_megabytes())
    results.tell("From process start to the first answer, in an empty home", rows, [
        at_most("times the minimal program's time (1.5)",
                ratio(rows, "hub, first answer", "minimal program, first answer"), 1.5),
        at_most("times the minimal program's memory (1.5)",
                ratio(rows, "hub, resident", "minimal program, resident"), 1.5)])


def seconds_of(*command, folder=None):
    begin = time.monotonic()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, cwd=folder)
    return time.monotonic() - begin


def bench_read(results, quick):
    """A session at rest, and the same objects in a packed repository of git's own."""
    assets = 10000 if quick else 100000
    rows = {name: ([], unit) for name, unit in (
        ("all assets", "s"), ("libgit2", "s"), ("all assets, one processor", "s"), ("libgit2, one thread", "s"),
        ("one asset, p50", "us"), ("one asset, p99", "us"),
        ("difference of 1 change", "ms"), ("git diff-tree of 1 change", "ms"),
        ("difference of 1000 changes", "ms"), ("git diff-tree of 1000 changes", "ms"))}
    with Folder() as home:
        packed = os.path.join(home, "packed.git")
        out = subprocess.run([program("read_round"), "make", home, str(assets)], check=True, stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL, text=True).stdout
        session, *revisions = out.split()
        environment = dict(os.environ, HOME=home, XDG_DATA_HOME="", XDG_CONFIG_HOME="", XDG_RUNTIME_DIR=home)
        subprocess.run([program("hubctl"), "export-git", session, packed], check=True, env=environment,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        git = ["git", "-C", packed]
        for number in range(3 if quick else 7):
            arguments = ("read", home, session, *revisions, str(number))
            ours = measure(program("read_round"), *arguments)
            alone = measure("taskset", "-c", "0", program("read_round"), *arguments)
            rows["all assets"][0].append(ours["all"])
            rows["all assets, one processor"][0].append(alone["all"])
            rows["one asset, p50"][0].append(1000 * ours["p50"])
            rows["one asset, p99"][0].append(1000 * ours["p99"])
            rows["libgit2"][0].append(measure(program("libgit2_read_round"), packed, "2")["all"])
            rows["libgit2, one thread"][0].append(measure(program("libgit2_read_round"), packed, "1")["all"])
            start = min(seconds_of(*git, "rev-parse", "session") for _ in range(3))
            for name, key, change in (("1 change", "one", 0), ("1000 changes", "many", 1)):
                rows[f"difference of {name}"][0].append(1000 * ours[key])
                rows[f"git diff-tree of {name}"][0].append(1000 * (min(
                    seconds_of(*git, "diff-tree", "-r", "--raw", *revisions[change:change + 2])
                    for _ in range(3)) - start))
    results.tell(f"Reading out of a session of {assets} assets at rest", rows, [
        at_least("times faster than libgit2 on a packed repository, one thread (2)",
                 ratio(rows, "libgit2, one thread", "all assets, one processor"), 2),
        at_least("the same with two threads (2)", ratio(rows, "libgit2", "all assets"), 2),
        at_most("microseconds of one asset, p50 (15)", statistics.median(rows["one asset, p50"][0]), 15),
        at_most("milliseconds of a difference of 1 change (0.3)",
                statistics.median(rows["difference of 1 change"][0]), 0.3),
        at_most("milliseconds of a difference of 1000 changes (30)",
                statistics.median(rows["difference of 1000 changes"][0]), 30),
        at_least("times faster than git diff-tree, 1 change (10)",
                 ratio(rows, "git diff-tree of 1 change", "difference of 1 change"), 10),
        at_least("times faster than git diff-tree, 1000 changes (3)",
                 ratio(rows, "git diff-tree of 1000 changes", "difference of 1000 changes"), 3)])


def bench_law(results, quick):
    """What one durable edit costs as the session and its history grow."""
    edits = 500 if quick else 1000
    sizes = (1000, 10000) if quick else (1000, 10000, 100000)
    commits = 2000 if quick else 10000
    rows = {f"{size} assets, p50": ([], "ms") for size in sizes}
    rows |= {f"1000 assets, {text} {commits} commits": ([], "ms") for text in ("before", "after")}
    for _ in range(1 if quick else 3):
        for size in sizes:
            rows[f"{size} assets, p50"][0].append(in_folder("box_round", size, edits)["p50"])
        ours = in_folder("box_round", 1000, commits)
        rows[f"1000 assets, before {commits} commits"][0].append(ours["first"])
        rows[f"1000 assets, after {commits} commits"][0].append(ours["last"])
    smallest, largest = (f"{size} assets, p50" for size in (sizes[0], sizes[-1]))
    results.tell("The cost of one durable edit as a session grows", rows, [
        at_most(f"times the edit of 1000 assets, of {sizes[-1]} (3)", ratio(rows, largest, smallest), 3),
        at_most("times the first edit, after many commits (1.5)",
                ratio(rows, f"1000 assets, after {commits} commits", f"1000 assets, before {commits} commits"), 1.5)])


def bench_sessions(results, quick):
    count, assets = (200, 100) if quick else (1000, 100)
    rows = {"start": ([], "s"), "memory of a session after the start": ([], "KB"), "files open after the start": ([], ""),
            "memory of a session once read": ([], "KB"), "files open once all are read": ([], ""),
            "memory of a session once released": ([], "KB"), "files open once all are released": ([], "")}
    with Folder() as home:
        subprocess.run([program("sessions_round"), "make", home, str(count), str(assets)], check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for _ in range(3):
            ours = measure(program("sessions_round"), "open", home)
            rows["start"][0].append(ours["start"])
            for text, key in (("after the start", ""), ("once {}read", "_read"), ("once {}released", "_released")):
                rows["memory of a session " + text.format("")][0].append(ours["kilobytes" + key] / count)
                rows["files open " + text.format("all are ")][0].append(ours["files" + key])
    results.tell(f"{count} sessions of {assets} assets each", rows, [
        at_most("seconds of the start (2)", statistics.median(rows["start"][0]), 2),
        at_most("KB a session that nobody has asked for (100)",
                statistics.median(rows["memory of a session after the start"][0]), 100),
        at_most("files that the start keeps open (0)", max(rows["files open after the start"][0]), 0)])


def bench_polls(results, quick):
    clients = 1000 if quick else 10000
    parts = {"megabytes": ("memory beyond the idle", "MB"), "answered": ("the last one answered after", "ms"),
             "p99": ("ordinary requests meanwhile, p99", "ms")}
    rows = {f"{who}, {text}": ([], unit) for text, unit in parts.values() for who in ("hub", "bare Beast")}
    for _ in range(1 if quick else 3):
        with Folder() as home, hub(home, free_port()) as ours:
            measured = {"hub": measure(program("poll_round"), str(ours.port), "hub", str(clients),
                                       str(ours.process.pid))}
        port = free_port()
        with Server(port, "bash", "-c", f"ulimit -n $(ulimit -Hn); exec {program('BareBeastServer')} {port} 300",
                    path="/api") as bare:
            measured["bare Beast"] = measure(program("poll_round"), str(port), "bare", str(clients),
                                             str(bare.process.pid))
        for who, values in measured.items():
            for key, (text, _) in parts.items():
                rows[f"{who}, {text}"][0].append(values[key])
    median = {key: statistics.median(rows[f"hub, {text}"][0]) for key, (text, _) in parts.items()}
    results.tell(f"{clients} clients that wait for a change of one session", rows, [
        at_most("MB beyond the idle hub (64)", median["megabytes"], 64),
        at_most("milliseconds until all are answered (500)", median["answered"], 500),
        at_most("milliseconds of ordinary requests meanwhile, p99 (20)", median["p99"], 20)])


def bench_ropes(results, quick):
    """Single-file projects, beside the session folder that they are copied from and git's own copy of the same."""
    assets, edits = (10000, 200) if quick else (100000, 500)
    rows = {name: ([], unit) for name, unit in (
        ("bulk load of a session folder", "s"), ("copy into a file", "s"), ("thinned copy of the file", "s"),
        ("git clone --no-local", "s"), ("one edit in the folder, p50", "ms"), ("one edit in the file, p50", "ms"),
        ("opening the file", "ms"), ("the file", "MB"), ("peak memory", "MB"))}
    for _ in range(1 if quick else 3):
        with Folder() as home:
            ours = measure(program("rope_round"), home, str(assets), str(edits))
            for key, name in (("load", "bulk load of a session folder"), ("copy", "copy into a file"),
                              ("thin", "thinned copy of the file"), ("folder_edit", "one edit in the folder, p50"),
                              ("file_edit", "one edit in the file, p50"), ("open", "opening the file"),
                              ("megabytes", "the file"), ("peak", "peak memory")):
                rows[name][0].append(ours[key])
            exported, cloned = os.path.join(home, "exported.git"), os.path.join(home, "cloned.git")
            session = next(name for _, folders, _ in os.walk(home) for name in folders if name.endswith(".lyra2"))
            environment = dict(os.environ, HOME=home, XDG_DATA_HOME="", XDG_CONFIG_HOME="", XDG_RUNTIME_DIR=home)
            subprocess.run([program("hubctl"), "export-git", session.removesuffix(".lyra2"), exported], check=True,
                           env=environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            os.sync()
            rows["git clone --no-local"][0].append(
                seconds_of("git", "clone", "-q", "--bare", "--no-local", exported, cloned))
    results.tell(f"A single-file project of {assets} assets", rows, [
        at_most("copy in bulk loads (1.3)", ratio(rows, "copy into a file", "bulk load of a session folder"), 1.3),
        at_most("thinning in bulk loads (1.3)", ratio(rows, "thinned copy of the file", "bulk load of a session folder"), 1.3),
        at_least("copies in the time of git clone --no-local (5)",
                 ratio(rows, "git clone --no-local", "copy into a file"), 5),
        at_most("edit in the file, in edits of the folder (2.5)",
                ratio(rows, "one edit in the file, p50", "one edit in the folder, p50"), 2.5),
        at_most("milliseconds to open it (50)", statistics.median(rows["opening the file"][0]), 50)])


def bench_copies(results, quick):
    """Copies of a session and its snapshots, beside zip and unzip of the same bytes."""
    for assets, megabytes, bound in ((10000, 0, None),) if quick else ((100000, 0, None), (100000, 2048, 400)):
        rows = {name: ([], unit) for name, unit in (
            ("bulk load of the session", "s"), ("copy into a folder", "s"), ("copy into a file", "s"),
            ("snapshot taken", "s"), ("zip -1", "s"), ("snapshot opened", "s"), ("unzip", "s"),
            ("the snapshot", "MB"), ("memory of the copy into a folder", "MB"), ("memory of the copy into a file", "MB"),
            ("memory of taking a snapshot", "MB"))}
        for _ in range(1 if quick or megabytes else 3):
            with Folder() as home:
                ours = measure(program("copy_round"), home, str(assets), str(megabytes))
                for key, name in (("load", "bulk load of the session"), ("copy", "copy into a folder"),
                                  ("file", "copy into a file"), ("take", "snapshot taken"),
                                  ("extract", "snapshot opened"), ("megabytes", "the snapshot"),
                                  ("copy_memory", "memory of the copy into a folder"),
                                  ("file_memory", "memory of the copy into a file"),
                                  ("take_memory", "memory of taking a snapshot")):
                    rows[name][0].append(ours[key])
                same = os.path.join(home, "snapshot.lyra2")
                rows["zip -1"][0].append(seconds_of("zip", "-1", "-q", "-r", os.path.join(home, "peer.zip"), ".", folder=same))
                rows["unzip"][0].append(seconds_of("unzip", "-q", os.path.join(home, "peer.zip"), "-d",
                                                   os.path.join(home, "peer")))
        targets = [
            at_most("copy into a folder in bulk loads (1.3)", ratio(rows, "copy into a folder", "bulk load of the session"), 1.3),
            at_most("copy into a file in bulk loads (1.3)", ratio(rows, "copy into a file", "bulk load of the session"), 1.3),
            at_most("snapshot in the time of zip -1 (1.2)", ratio(rows, "snapshot taken", "zip -1"), 1.2),
            at_most("opening in the time of unzip (1.2)", ratio(rows, "snapshot opened", "unzip"), 1.2)]
        if bound:
            for name in ("memory of the copy into a folder", "memory of the copy into a file", "memory of taking a snapshot"):
                targets.append(at_most(f"MB of {name} ({bound})", statistics.median(rows[name][0]), bound))
        with_enclosures = f" and {megabytes} MB of enclosures" if megabytes else ""
        results.tell(f"Copies and snapshots of {assets} assets{with_enclosures}", rows, targets)


BENCHES = {"store": bench_store, "edit": bench_edit, "read": bench_read, "locators": bench_locators,
           "law": bench_law, "sessions": bench_sessions, "form": bench_form, "get": bench_get, "start": bench_start,
           "polls": bench_polls, "ropes": bench_ropes, "copies": bench_copies}
DOCUMENT = os.path.join(ROOT, "Docs", "performance.md")
MARK = "<!-- below: written by ./bench --write -->"


def sections(text):
    """Title -> text of the parts that begin with "## "."""
    return {part.splitlines()[0]: "## " + part.strip() + "\n" for part in text.split("\n## ")[1:]}


def write_down(results):
    """Renews what was measured; what was not stays as it was."""
    with open(DOCUMENT, encoding="utf-8") as document:
        head, _, tables = document.read().partition(MARK)
    tables = sections("\n" + tables) | sections("\n" + "\n".join(results.lines))
    with open(DOCUMENT, "w", encoding="utf-8") as document:
        document.write(head + MARK + "\n\n" + "\n".join(tables.values()))


def main():
    parser = argparse.ArgumentParser(prog="./bench")
    parser.add_argument("--quick", action="store_true", help="fewer assets and shorter rounds")
    parser.add_argument("--write", action="store_true", help="renew the tables of Docs/performance.md for what runs")
    parser.add_argument("names", nargs="*", choices=[[], *BENCHES], help="which; all when none is named")
    arguments = parser.parse_args()
    results = Results()
    for name in arguments.names or BENCHES:
        BENCHES[name](results, arguments.quick)
    if arguments.write:
        write_down(results)
    return 0


if __name__ == "__main__":
    sys.exit(main())
