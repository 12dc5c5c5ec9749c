#!/usr/bin/env python3
"""Random-key soak of Fentra: drives the running program with seeded random key presses, holds
and pointer moves from its whole key table for a given time, and checks that it stays up, that
its peak memory stops growing, that it leaves only its own files behind and that Q ends it with
status 0. Run inside an X server of its own (soak.sh starts one with xvfb-run).

Usage: soak.py <program dir> <minutes> <seed> <work dir>
The program dir holds a copy of the program, "fentra", and nothing else; the work dir receives
the program's output and the action log.
"""
import heapq
import os
import random
import re
import shutil
import subprocess
import sys
import time
import types

# ---- The key table ---------------------------------------------------------------------------
# (xdotool name, weight in the random choice). Edge keys act once per press, so short taps
# suffice; held keys (the magnets, R, Shift and the arrows) act in every frame while down.
EDGE_KEYS = [("p", 3), ("k", 3), ("w", 3), ("g", 3), ("space", 3), ("d", 4), ("f", 4),
             ("i", 4), ("h", 4), ("a", 4), ("l", 4), ("s", 4), ("c", 4),
             ("KP_Add", 3), ("KP_Subtract", 3)]
HELD_KEYS = [("2", 5), ("3", 5), ("4", 8), ("5", 8), ("6", 5), ("7", 5), ("8", 5), ("9", 5),
             ("o", 5), ("0", 5), ("Left", 8), ("Right", 8), ("r", 3), ("Shift_L", 4)]
# The two that need the keyboard to themselves: F1 (the help page waits for Space) and Ctrl+S.
EXCLUSIVE_KEYS = ["F1", "ctrl+s"]

MOST_KEYS_HELD = 3     # keys down at one time
# Keypad + presses allowed beyond the keypad - presses, and the other way round: the speed
# stays at most 8 m/s, so the steps stay short, and mostly at 1/64 m/s or more, so the beam
# visibly moves.
SPEED_DOUBLINGS = 3
SPEED_HALVINGS = 6
SHOT_GAP = (10.0, 30.0)   # seconds between screenshots; names only change every 0.3 s
HELP_GAP = (30.0, 90.0)
SHOT_WAIT = 20.0       # a screenshot that takes longer than this counts as missed
SHOT_NAME = re.compile(r"^Fentra_\d{5}\.(bmp|png)$")
EXPECTED_FILE = re.compile(r"^(fentra|kora_sp\.txt|warnings\.log|graphics_error\.log)$")


def pick(rng, table):
    return rng.choices([name for name, _ in table], [w for _, w in table])[0]


def timeline(rng, width, height):
    """Yields (virtual time in s, operation, argument) for ever, the same for the same seed.
    Operations: "down"/"up" a key, "mouse" (x, y), "shot" (Ctrl+S and wait for the file),
    "help" (F1, then Space after a pause)."""
    t = 0.0
    releases = []          # heap of (time, key) for the keys down now
    net_doublings = 0
    # The first actions press every key of the table once, in a seeded order, so that the
    # memory measured after the first minute already includes every feature.
    tour = [k for k, _ in EDGE_KEYS + HELD_KEYS] + EXCLUSIVE_KEYS
    rng.shuffle(tour)
    next_shot, next_help = rng.uniform(*SHOT_GAP), rng.uniform(*HELP_GAP)
    while True:
        t += rng.uniform(0.03, 0.25)
        while releases and releases[0][0] <= t:
            rt, k = heapq.heappop(releases)
            yield (rt, "up", k)
        if tour:
            if len(releases) >= MOST_KEYS_HELD:
                continue
            key = tour.pop()
        elif t >= next_shot:
            key = "ctrl+s"
        elif t >= next_help:
            key = "F1"
        elif rng.random() < 0.15:
            yield (t, "mouse", (rng.randrange(width), rng.randrange(height)))
            continue
        else:
            key = pick(rng, EDGE_KEYS if rng.random() < 0.4 else HELD_KEYS)

        if key in EXCLUSIVE_KEYS:
            while releases:
                yield (t, "up", heapq.heappop(releases)[1])
            t += 0.3
            yield (t, "shot" if key == "ctrl+s" else "help", rng.uniform(0.2, 1.5))
            t += 2.0
            if key == "ctrl+s":
                next_shot = t + rng.uniform(*SHOT_GAP)
            else:
                next_help = t + rng.uniform(*HELP_GAP)
            continue
        if key == "KP_Add" and net_doublings >= SPEED_DOUBLINGS:
            key = "KP_Subtract"
        elif key == "KP_Subtract" and net_doublings <= -SPEED_HALVINGS:
            key = "KP_Add"
        if any(k == key for _, k in releases) or len(releases) >= MOST_KEYS_HELD:
            continue
        if key in ("KP_Add", "KP_Subtract"):
            net_doublings += 1 if key == "KP_Add" else -1
        elif key == "i":
            # Leaving the KORA lattice resets the speed to 1 m/s; entering it keeps the speed.
            # Counting a reset either way keeps the count at or above the real doublings.
            net_doublings = max(net_doublings, 0)
        if any(key == k for k, _ in EDGE_KEYS):
            hold = rng.uniform(0.03, 0.25)
        else:
            hold = rng.uniform(0.05, 1.0) if rng.random() < 0.8 else rng.uniform(1.0, 4.0)
        yield (t, "down", key)
        heapq.heappush(releases, (t + hold, key))


# ---- Watching the program --------------------------------------------------------------------
def status_kb(pid, field):
    """A "VmHWM"-style field of /proc/<pid>/status in kB, or None once the process is gone."""
    try:
        with open(f"/proc/{pid}/status") as f:
            return next((int(line.split()[1]) for line in f if line.startswith(field + ":")), None)
    except OSError:
        return None


def child_pid(parent):
    """The program's pid: the only child of the timeout command that started it."""
    for _ in range(100):
        try:
            with open(f"/proc/{parent}/task/{parent}/children") as f:
                kids = f.read().split()
            if kids:
                return int(kids[0])
        except OSError:
            pass
        time.sleep(0.05)
    return None


def bmp_ok(path, width, height):
    """A complete 24-bit bottom-up BMP of the whole screen."""
    try:
        with open(path, "rb") as f:
            head = f.read(54)
        size = os.path.getsize(path)
    except OSError:
        return False
    field = lambda at, n: int.from_bytes(head[at:at + n], "little", signed=True)
    return (len(head) == 54 and head[:2] == b"BM" and (field(18, 4), field(22, 4), field(28, 2)) ==
            (width, height, 24) and size == 54 + (width * 3 + 3) // 4 * 4 * height)


S = types.SimpleNamespace()   # the run's whole state


def log(msg):
    print(msg, flush=True)


def act(msg):
    S.actions.write(f"{time.monotonic() - S.t0:9.3f} {msg}\n")


def xdo(*args):
    subprocess.run(["xdotool", *args], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                   timeout=20)


def tap(key, seconds):
    xdo("keydown", key)
    time.sleep(seconds)
    xdo("keyup", key)
    act(key)


def fail(msg):
    log(f"FAIL: {msg}")
    raise SystemExit


def tail(path, lines=15):
    try:
        with open(path, errors="replace") as f:
            return "".join(f.readlines()[-lines:])
    except OSError:
        return ""


def check_alive():
    code = S.proc.poll()
    if code is not None:
        how = f"killed by signal {-code}" if code < 0 else f"ended with status {code}"
        fail(f"the program {how} during the run, {time.monotonic() - S.t0:.1f} s in; "
             f"last output:\n{tail(S.out_path)}")


# Ctrl+S writes a BMP and, where ImageMagick is installed, turns it into a PNG and deletes the
# BMP: a screenshot counts once, in its final form.
CONVERTER = shutil.which("magick") or shutil.which("convert")


def take_new_shots():
    """Counts and removes (6 MB each) the screenshots that are complete."""
    names = os.listdir(S.run)
    for name in names:
        path = os.path.join(S.run, name)
        if not SHOT_NAME.match(name) or name in S.shots_seen:
            continue
        if CONVERTER:
            done = name.endswith(".png") and name[:-4] + ".bmp" not in names
        else:
            done = name.endswith(".bmp") and bmp_ok(path, S.width, S.height)
        if done:
            S.shots_seen.add(name)
            S.shots += 1
            os.remove(path)


def housekeeping():
    check_alive()
    take_new_shots()
    now = time.monotonic()
    if S.base_hwm is None and now >= S.t0 + S.base_after:
        S.base_hwm = status_kb(S.pid, "VmHWM")
        log(f"peak RSS after {S.base_after:.0f} s: {S.base_hwm} kB "
            f"(RSS now {status_kb(S.pid, 'VmRSS')} kB)")
    if now >= S.next_report:
        S.next_report += 60
        log(f"{(now - S.t0) / 60:5.1f} min: RSS {status_kb(S.pid, 'VmRSS')} kB, peak "
            f"{status_kb(S.pid, 'VmHWM')} kB, keys {S.keys}, screenshots {S.shots}")


def wait_until(real_time):
    while True:
        housekeeping()
        now = time.monotonic()
        if now >= real_time:
            return
        time.sleep(min(0.05, real_time - now))


def screenshot():
    before = S.shots
    # Ctrl stays down until the file is there: a frame slower than the S tap must still see
    # Ctrl in the snapshot that holds S, or the press toggles the scraper instead.
    xdo("keydown", "ctrl")
    time.sleep(0.1)
    xdo("keydown", "s")
    time.sleep(0.15)
    xdo("keyup", "s")
    act("ctrl+s")
    S.keys += 1
    S.shot_presses += 1
    start = time.monotonic()
    while S.shots == before and time.monotonic() - start < SHOT_WAIT:
        time.sleep(0.1)
        housekeeping()
    xdo("keyup", "ctrl")
    if S.shots == before:
        S.missed_in_a_row += 1
        act("  no screenshot")
        log(f"no screenshot {SHOT_WAIT:.0f} s after Ctrl+S at {start - S.t0:.1f} s")
        if S.missed_in_a_row >= 2:
            fail("two Ctrl+S in a row gave no screenshot: the program no longer answers keys")
    else:
        S.missed_in_a_row = 0
    return time.monotonic() - start


def drive(seconds):
    """Plays the seeded timeline until the time is up; waiting for screenshots shifts it."""
    held = set()
    offset, end = S.t0, S.t0 + seconds
    for vt, op, arg in timeline(random.Random(S.seed), S.width, S.height):
        wait_until(offset + vt)
        if time.monotonic() >= end:
            break
        if op in ("down", "up"):
            xdo(f"key{op}", arg)
            act(f"{op} {arg}")
            if op == "down":
                held.add(arg)
                S.keys += 1
                S.doublings += {"KP_Add": 1, "KP_Subtract": -1}.get(arg, 0)
            else:
                held.discard(arg)
        elif op == "mouse":
            xdo("mousemove", str(arg[0]), str(arg[1]))
            S.mouse_moves += 1
            act(f"mouse {arg[0]} {arg[1]}")
        elif op == "shot":
            offset += screenshot()
        else:   # the help page, then Space after a pause
            tap("F1", 0.15)
            time.sleep(arg)
            check_alive()
            tap("space", 0.12)
            S.keys += 2
    for k in sorted(held):
        xdo("keyup", k)
        act(f"up {k}")


def run(minutes):
    S.out = open(S.out_path, "w")
    S.proc = subprocess.Popen(["timeout", "-k", "5", str(int(minutes * 60 + 120)), "./fentra"],
                              cwd=S.run, stdout=S.out, stderr=subprocess.STDOUT)
    S.pid = child_pid(S.proc.pid)
    if S.pid is None:
        fail("the program did not start")
    found = subprocess.run(["timeout", "30", "xdotool", "search", "--sync", "--onlyvisible",
                            "--class", "fentra"], capture_output=True, text=True)
    if not found.stdout.split():
        fail(f"no window within 30 s; output:\n{tail(S.out_path)}")
    geo = subprocess.run(["xdotool", "getdisplaygeometry"], capture_output=True, text=True)
    S.width, S.height = (int(v) for v in geo.stdout.split())
    time.sleep(0.5)    # the window takes the keyboard focus about 0.1 s after it appears
    check_alive()
    log(f"window up; driving for {minutes:g} min on a {S.width} x {S.height} screen")
    S.t0 = time.monotonic()
    S.next_report = S.t0 + 60
    drive(minutes * 60)
    check_alive()
    if S.base_hwm is None:
        fail("the run ended before the first memory reading")
    S.end_hwm, S.end_rss = status_kb(S.pid, "VmHWM"), status_kb(S.pid, "VmRSS")
    tap("q", 0.2)
    try:
        S.status = S.proc.wait(timeout=30)
    except subprocess.TimeoutExpired:
        fail("the program did not end within 30 s of Q")
    take_new_shots()


def final_checks(names):
    problems = []
    if S.status != 0:
        problems.append(f"exit status {S.status} after Q (expected 0); output:\n{tail(S.out_path)}")
    if S.base_hwm and S.end_hwm and S.end_hwm > S.base_hwm * 1.10:
        problems.append(f"peak RSS grew from {S.base_hwm} kB to {S.end_hwm} kB "
                        f"(+{100.0 * (S.end_hwm - S.base_hwm) / S.base_hwm:.1f} %, over 10 %)")
    strays = [n for n in names if not EXPECTED_FILE.match(n) and not SHOT_NAME.match(n)]
    if strays:
        problems.append(f"unexpected files in the program's directory: {strays}")
    if "fentra" not in names or "kora_sp.txt" not in names:
        problems.append(f"the program or its lattice file is missing: {names}")
    if S.shot_presses and S.shots == 0:
        problems.append(f"{S.shot_presses} Ctrl+S presses and no screenshot")
    if S.shots > S.shot_presses:
        problems.append(f"{S.shots} screenshots from {S.shot_presses} Ctrl+S presses")
    broken = [n for n in names if n.endswith(".bmp")]
    if broken:
        problems.append(f"screenshots left unfinished (an incomplete BMP, or one never turned into a PNG): {broken}")
    return problems


def main():
    run_dir, minutes, seed, work = sys.argv[1], float(sys.argv[2]), int(sys.argv[3]), sys.argv[4]
    S.run, S.seed, S.out_path = run_dir, seed, os.path.join(work, "fentra_output.txt")
    S.actions = open(os.path.join(work, "actions.log"), "w", buffering=1)
    S.keys = S.shots = S.shot_presses = S.mouse_moves = S.doublings = S.missed_in_a_row = 0
    S.shots_seen = set()
    S.base_hwm = S.end_hwm = S.end_rss = S.status = S.proc = None
    # Memory is compared with its peak after the first minute, or half the run if shorter.
    S.base_after = 60.0 if minutes >= 2 else minutes * 30
    S.t0 = time.monotonic()
    try:
        run(minutes)
        problems = final_checks(sorted(os.listdir(run_dir)))
    except SystemExit:
        problems = ["see above"]
    finally:
        if S.proc is not None and S.proc.poll() is None:
            S.proc.terminate()    # the timeout command; it passes the signal on
            try:
                S.proc.wait(timeout=10)
            except subprocess.TimeoutExpired:
                S.proc.kill()

    names = sorted(os.listdir(run_dir))
    log(f"keys sent: {S.keys} (net speed doublings {S.doublings}), pointer moves: {S.mouse_moves}")
    log(f"screenshots: {S.shots} from {S.shot_presses} Ctrl+S presses")
    log(f"peak RSS: {S.base_hwm} kB after {S.base_after:.0f} s, {S.end_hwm} kB at the end "
        f"(RSS then {S.end_rss} kB)")
    log(f"exit status: {S.status}\nfiles left: {names}")
    if "warnings.log" in names:
        log("warnings.log:\n" + tail(os.path.join(run_dir, "warnings.log")))
    others = [ln for ln in tail(S.out_path, 1000).splitlines() if "magick" not in ln]
    if others:
        log("program output (other than the missing image converter):\n" + "\n".join(others[-15:]))
    for p in problems:
        if p != "see above":
            log(f"FAIL: {p}")
    if problems:
        log("last actions (seconds since the window came up):\n" +
            tail(os.path.join(work, "actions.log"), 25).rstrip())
        log(f"seed {seed}; the actions are in {os.path.join(work, 'actions.log')}")
        return 1
    log("PASS")
    return 0


if __name__ == "__main__":
    sys.exit(main())
