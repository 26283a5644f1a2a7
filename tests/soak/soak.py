#!/usr/bin/env python3
"""Fault soak: the demo streams to the local service, which is killed and restarted many times.

Runs the standalone local service and the demo host app as two processes on a fixed loopback
port, kills the service with SIGKILL again and again, restarts it on the same port and measures
how long the demo takes to stream reports to the new service process. Watches the demo's memory
and whether it survives. Exits 0 when every target is met, 1 when one is missed, 2 when the soak
could not run at all.

Standard library only; builds nothing (see tests/soak/README.md).
"""

import argparse
import collections
import json
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.request

VISITS_API = "/console/api/visits"
# The service logs each POST it refuses because it never saw the visit (XhrEndpoint).
REFUSED_POST = "Reports for unknown visit"
# The demo's debug log names each request it makes; these are on its report channel.
REPORT_REQUEST = re.compile(r"\b(GET|POST) \S*/api/ix/m\?")


class DemoDied(Exception):
    pass


def log(message):
    print(f"[soak] {message}", flush=True)


def find_binary(build_dir, name):
    for candidate in (
        os.path.join(build_dir, "service", name),
        os.path.join(build_dir, "examples", "demo", name),
        os.path.join(build_dir, "bin", name),
    ):
        if os.path.isfile(candidate) and os.access(candidate, os.X_OK):
            return candidate
    for root, _dirs, files in os.walk(build_dir):
        if name in files:
            path = os.path.join(root, name)
            if os.access(path, os.X_OK):
                return path
    return None


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def rss_kb(pid):
    try:
        with open(f"/proc/{pid}/status", encoding="ascii", errors="replace") as status:
            for line in status:
                if line.startswith("VmRSS:"):
                    return int(line.split()[1])
    except OSError:
        pass
    return None


def mb(kb):
    return kb / 1024.0


def exit_description(code):
    if code is None:
        return "running"
    if code < 0:
        try:
            return f"killed by {signal.Signals(-code).name}"
        except ValueError:
            return f"killed by signal {-code}"
    return f"exit status {code}"


class Soak:
    def __init__(self, args):
        self.args = args
        self.port = args.port or free_port()
        self.out = args.out or tempfile.mkdtemp(prefix="vistrel-soak-")
        os.makedirs(self.out, exist_ok=True)
        self.service_bin = find_binary(args.build, "vistrel-service")
        self.demo_bin = find_binary(args.build, "vistrel-demo")
        self.service = None
        self.service_log_offset = 0
        self.service_starts = 0
        self.demo = None
        self.demo_crash = None
        self.rss_samples = []  # (seconds since the demo started, kB)
        self.demo_started_at = None
        self.rows = []

        env = dict(os.environ)
        env.pop("VISTREL_TEST_TLS_DIR", None)  # no HTTPS port: the soak needs plain HTTP only
        env["QT_QPA_PLATFORM"] = "offscreen"
        env["QTWEBENGINE_DISABLE_SANDBOX"] = "1"
        # The kit's device id and Qt's caches go to the output directory, not the user's home.
        for key, sub in (("XDG_DATA_HOME", "data"), ("XDG_CONFIG_HOME", "config"),
                         ("XDG_CACHE_HOME", "cache")):
            env[key] = os.path.join(self.out, "home", sub)
            os.makedirs(env[key], exist_ok=True)
        self.env = env
        self.service_log_path = os.path.join(self.out, "service.log")
        self.demo_log_path = os.path.join(self.out, "demo.log")

    # --- observing the service -------------------------------------------------------------

    def visits(self):
        """The console's visit list of the running service, or None while it does not answer."""
        url = f"http://127.0.0.1:{self.port}{VISITS_API}"
        try:
            with urllib.request.urlopen(url, timeout=2) as reply:
                return json.loads(reply.read())
        except (urllib.error.URLError, OSError, ValueError):
            return None

    @staticmethod
    def report_count(listing):
        return sum(int(v.get("reportCount") or 0) for v in listing.get("visits", []))

    @staticmethod
    def poll_count(listing):
        return sum(int(p.get("pollCount") or 0) for p in listing.get("pollers", []))

    def refused_posts(self):
        """POSTs the current service process refused as being for a visit it never saw."""
        try:
            with open(self.service_log_path, encoding="utf-8", errors="replace") as logfile:
                logfile.seek(self.service_log_offset)
                return logfile.read().count(REFUSED_POST)
        except OSError:
            return 0

    def demo_log_size(self):
        try:
            return os.path.getsize(self.demo_log_path)
        except OSError:
            return 0

    def report_requests(self, offset):
        """Requests on the report channel the demo logged since offset."""
        try:
            with open(self.demo_log_path, encoding="utf-8", errors="replace") as logfile:
                logfile.seek(offset)
                return sum(1 for line in logfile if REPORT_REQUEST.search(line))
        except OSError:
            return 0

    # --- processes ---------------------------------------------------------------------------

    def check_demo(self):
        if self.demo is None or self.demo_crash is not None:
            return
        code = self.demo.poll()
        if code is not None:
            self.demo_crash = (time.monotonic() - self.demo_started_at, code)
            raise DemoDied(exit_description(code))

    def sample(self):
        self.check_demo()
        kb = rss_kb(self.demo.pid) if self.demo else None
        if kb is not None:
            self.rss_samples.append((time.monotonic() - self.demo_started_at, kb))
        return kb

    def pause(self, seconds):
        """Sleeps while watching the demo."""
        end = time.monotonic() + seconds
        while True:
            if self.demo:
                self.sample()
            left = end - time.monotonic()
            if left <= 0:
                return
            time.sleep(min(left, self.args.interval))

    def start_service(self):
        """Starts the service on the soak's port, retrying while the port is not free yet.

        Returns the moment it answered its console API."""
        deadline = time.monotonic() + self.args.listen_timeout
        while time.monotonic() < deadline:
            self.service_starts += 1
            with open(self.service_log_path, "a", encoding="utf-8") as logfile:
                logfile.write(f"=== soak: service start #{self.service_starts} ===\n")
                logfile.flush()
                self.service_log_offset = logfile.tell()
                self.service = subprocess.Popen(
                    [self.service_bin, "--address", "127.0.0.1", "--port", str(self.port)],
                    stdin=subprocess.DEVNULL, stdout=logfile, stderr=subprocess.STDOUT,
                    env=self.env, start_new_session=True)
            while self.service.poll() is None and time.monotonic() < deadline:
                if self.visits() is not None:
                    return time.monotonic()
                if self.demo:
                    self.sample()
                time.sleep(0.05)
            if self.service.poll() is None:
                break
            # Most likely the port is still held; try again shortly.
            self.pause(0.25)
        raise RuntimeError(f"the service did not come up on port {self.port} within "
                           f"{self.args.listen_timeout:g} s (see {self.service_log_path})")

    def kill_service(self):
        if self.service and self.service.poll() is None:
            os.kill(self.service.pid, signal.SIGKILL)
            self.service.wait()
        return time.monotonic()

    def start_demo(self):
        logfile = open(self.demo_log_path, "w", encoding="utf-8")
        self.demo = subprocess.Popen(
            [self.demo_bin, "--server", f"127.0.0.1:{self.port}", "--scheme", "http"],
            stdin=subprocess.DEVNULL, stdout=logfile, stderr=subprocess.STDOUT, env=self.env,
            start_new_session=True)
        logfile.close()
        self.demo_started_at = time.monotonic()

    def wait_for_reports(self, since, deadline_s):
        """Seconds from `since` until the current service process holds a report (None if the
        deadline passed), and until it saw a channel poll."""
        back = poll_back = None
        end = since + deadline_s
        while time.monotonic() < end:
            listing = self.visits()
            now = time.monotonic() - since
            if listing is not None:
                if poll_back is None and self.poll_count(listing) > 0:
                    poll_back = now
                if self.report_count(listing) > 0:
                    back = now
                    break
            self.sample()
            time.sleep(self.args.interval)
        return back, poll_back

    def stop_all(self):
        shutdown = None
        if self.demo and self.demo.poll() is None:
            # The demo leaves through its event loop on SIGTERM, stopping the session.
            os.kill(self.demo.pid, signal.SIGTERM)
            try:
                shutdown = self.demo.wait(timeout=15)
            except subprocess.TimeoutExpired:
                os.killpg(self.demo.pid, signal.SIGKILL)
                self.demo.wait()
                shutdown = "hung"
        if self.demo:
            # Whatever it spawned (Qt WebEngine helpers) shares its process group.
            try:
                os.killpg(self.demo.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        self.kill_service()
        return shutdown

    # --- the run -----------------------------------------------------------------------------

    def run(self):
        a = self.args
        log(f"service {self.service_bin}")
        log(f"demo    {self.demo_bin}")
        log(f"port {self.port}; logs in {self.out}")

        shutdown = None
        started = False
        try:
            self.start_service()
            self.start_demo()
            first, _ = self.wait_for_reports(self.demo_started_at, a.startup_timeout)
            if first is None:
                log(f"no report reached the service within {a.startup_timeout:g} s of the "
                    "demo's start")
                return 2
            started = True
            log(f"streaming: first report {first:.1f} s after the demo started")
            self.pause(a.warmup)
            self.rss_start = self.sample()

            for number in range(1, a.restarts + 1):
                self.pause(a.settle)
                demo_log_offset = self.demo_log_size()
                killed = self.kill_service()
                self.pause(a.down)
                up = self.start_service()
                back, poll_back = self.wait_for_reports(up, a.deadline)
                row = {
                    "restart": number,
                    "down_s": up - killed,
                    "back_s": back,
                    "poll_s": poll_back,
                    "refused_posts": self.refused_posts(),
                    "demo_requests": self.report_requests(demo_log_offset),
                    "rss_kb": self.sample(),
                }
                self.rows.append(row)
                self.print_row(row)
        except DemoDied as died:
            log(f"the demo ended during the soak: {died}")
        except KeyboardInterrupt:
            log("interrupted")
        except RuntimeError as error:
            log(str(error))
            if not started:
                return 2
        finally:
            try:
                self.check_demo()  # an exit since the last look is a crash too
            except DemoDied as died:
                log(f"the demo ended during the soak: {died}")
            if started and self.rss_samples:
                # The last sample: taken now while the demo runs, else its last before it died.
                now = rss_kb(self.demo.pid) if self.demo.poll() is None else None
                self.rss_end = now if now is not None else self.rss_samples[-1][1]
            shutdown = self.stop_all()

        return self.summarise(shutdown)

    # --- the report --------------------------------------------------------------------------

    header_printed = False

    def print_row(self, row):
        if not self.header_printed:
            print(f"{'#':>3}  {'down s':>7}  {'back s':>9}  {'poll s':>7}  {'demo req':>8}  "
                  f"{'refused':>7}  {'demo RSS MB':>11}", flush=True)
            self.header_printed = True
        back = f"{row['back_s']:.1f}" if row["back_s"] is not None else "not back"
        poll = f"{row['poll_s']:.1f}" if row["poll_s"] is not None else "-"
        rss = f"{mb(row['rss_kb']):.1f}" if row["rss_kb"] is not None else "-"
        print(f"{row['restart']:>3}  {row['down_s']:>7.1f}  {back:>9}  {poll:>7}  "
              f"{row['demo_requests']:>8}  {row['refused_posts']:>7}  {rss:>11}", flush=True)

    def summarise(self, shutdown):
        a = self.args
        failed = []
        print()
        print("Summary")

        crashes = 0
        if self.demo_crash is not None:
            at, code = self.demo_crash
            crashes += 1
            print(f"  demo crash: {exit_description(code)} at {at:.1f} s")
        if shutdown not in (None, 0):
            crashes += 1
            print(f"  demo shutdown on SIGTERM: "
                  f"{'hung (killed after 15 s)' if shutdown == 'hung' else exit_description(shutdown)}")
        print(f"  crashes: {crashes}")
        if crashes:
            failed.append("the demo crashed")

        start = getattr(self, "rss_start", None)
        end = getattr(self, "rss_end", None)
        if start is not None and end is not None:
            growth = mb(end - start)
            peak = max(kb for _, kb in self.rss_samples)
            print(f"  demo RSS: {mb(start):.1f} MB -> {mb(end):.1f} MB "
                  f"(growth {growth:+.2f} MB, peak {mb(peak):.1f} MB, "
                  f"{len(self.rss_samples)} samples)")
            if growth > a.max_rss_growth_mb:
                failed.append(f"RSS grew {growth:.2f} MB (> {a.max_rss_growth_mb:g} MB)")
        else:
            print("  demo RSS: no start and end sample")
            failed.append("no RSS figures")

        done = len(self.rows)
        back = [r["back_s"] for r in self.rows if r["back_s"] is not None]
        not_back = done - len(back)
        slow = [b for b in back if b > a.max_back_s]
        print(f"  restarts: {done} of {a.restarts}")
        print(f"  max time to streaming back: "
              f"{f'{max(back):.1f} s' if back else '-'}"
              f"{' (of those back)' if back and not_back else ''}")
        print(f"  not back within {a.deadline:g} s: {not_back}")
        if done < a.restarts:
            failed.append(f"only {done} of {a.restarts} restarts ran")
        if not_back:
            failed.append(f"{not_back} restart(s) not back")
        if slow:
            failed.append(f"{len(slow)} restart(s) back later than {a.max_back_s:g} s")

        self.summarise_log()
        self.write_results(crashes, shutdown)

        print()
        if failed:
            print("TARGETS MISSED: " + "; ".join(failed))
            return 1
        print("All targets met.")
        return 0

    @staticmethod
    def normalise(line):
        line = re.sub(r"[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-"
                      r"[0-9A-Fa-f]{12}", "<id>", line)
        line = re.sub(r"0x[0-9A-Fa-f]+", "<hex>", line)
        line = re.sub(r"\d+", "<n>", line)
        return line[:160]

    def summarise_log(self):
        levels = collections.Counter()
        lines = collections.Counter()
        try:
            with open(self.demo_log_path, encoding="utf-8", errors="replace") as logfile:
                for raw in logfile:
                    line = raw.rstrip("\n")
                    if not line:
                        continue
                    match = re.match(r"\[([A-Z]+)\] ", line)
                    levels[match.group(1) if match else "other"] += 1
                    lines[self.normalise(line)] += 1
        except OSError:
            pass
        print(f"  demo log ({self.demo_log_path}): {sum(levels.values())} lines; " +
              ", ".join(f"{level} {count}" for level, count in levels.most_common()))
        for line, count in lines.most_common(5):
            print(f"    {count:>7}  {line}")
        print(f"  service log: {self.service_log_path}")

    def write_results(self, crashes, shutdown):
        results = {
            "port": self.port,
            "arguments": vars(self.args),
            "crashes": crashes,
            "demoCrash": self.demo_crash,
            "shutdown": shutdown,
            "rssStartKb": getattr(self, "rss_start", None),
            "rssEndKb": getattr(self, "rss_end", None),
            "rssSamples": self.rss_samples,
            "restarts": self.rows,
        }
        with open(os.path.join(self.out, "results.json"), "w", encoding="utf-8") as out:
            json.dump(results, out, indent=1)


def main():
    parser = argparse.ArgumentParser(
        description="Kill and restart the local service under a streaming demo; measure recovery, "
                    "memory and crashes.")
    parser.add_argument("build", nargs="?", default="build/dev",
                        help="build directory with vistrel-service and vistrel-demo "
                             "(default build/dev)")
    parser.add_argument("--restarts", type=int, default=20, help="service kills (default 20)")
    parser.add_argument("--down", type=float, default=3.0,
                        help="seconds the service stays down (default 3)")
    parser.add_argument("--deadline", type=float, default=60.0,
                        help="seconds after a restart before it counts as not back (default 60)")
    parser.add_argument("--settle", type=float, default=2.0,
                        help="seconds of streaming before each kill (default 2)")
    parser.add_argument("--warmup", type=float, default=5.0,
                        help="seconds of streaming before the first RSS sample (default 5)")
    parser.add_argument("--startup-timeout", type=float, default=60.0,
                        help="seconds for the demo's first report (default 60)")
    parser.add_argument("--listen-timeout", type=float, default=20.0,
                        help="seconds for a restarted service to answer (default 20)")
    parser.add_argument("--interval", type=float, default=0.2,
                        help="seconds between observations (default 0.2)")
    parser.add_argument("--max-back-s", type=float, default=30.0,
                        help="target: streaming back within this many seconds (default 30)")
    parser.add_argument("--max-rss-growth-mb", type=float, default=2.0,
                        help="target: demo RSS growth over the run (default 2)")
    parser.add_argument("--port", type=int, default=0,
                        help="the service's port (default: a free one, kept for the whole run)")
    parser.add_argument("--out", help="directory for the logs and results.json "
                                      "(default: a new temporary directory)")
    args = parser.parse_args()
    if args.restarts < 0 or args.down < 0 or args.deadline <= 0 or args.interval <= 0:
        parser.error("--restarts and --down must not be negative, --deadline and --interval "
                     "must be positive")
    missing = [name for name in ("vistrel-service", "vistrel-demo")
               if not find_binary(args.build, name)]
    if missing:
        log(f"{' and '.join(missing)} not found under {args.build}; build them first")
        return 2
    return Soak(args).run()


if __name__ == "__main__":
    sys.exit(main())
