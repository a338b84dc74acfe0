#!/usr/bin/env python3
"""aclsh on a terminal, keys and all, through a pseudo-terminal: Tab, ?, abbreviations,
Ctrl-C, Ctrl-D, a pasted configuration, a configuration session's diff, and history kept
between two runs (its file's mode kept). Usage: terminal-test.py ACLSH"""
import os
import pty
import re
import select
import stat
import sys
import tempfile
import time

ACLSH = sys.argv[1]
PROMPT = re.compile(rb"aclsh(\([^)]*\))?# $")


class Terminal:
    def __init__(self, history):
        env = dict(os.environ, ACLSH_HISTORY=history, TERM="dumb",
                   LSAN_OPTIONS="suppressions=" + os.path.join(os.path.dirname(__file__), "libedit.supp"))
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            os.execve(ACLSH, [ACLSH], env)
        self.seen = b""
        self.wait_for(PROMPT)

    def wait_for(self, pattern, timeout=10):
        """Reads until what came since the last wait matches `pattern`; returns it."""
        got = b""
        deadline = time.monotonic() + timeout
        while not re.search(pattern, got):
            ready, _, _ = select.select([self.fd], [], [], max(0, deadline - time.monotonic()))
            if not ready:
                raise AssertionError(f"waited for {pattern!r}, got {got!r}")
            try:
                got += os.read(self.fd, 4096)
            except OSError:  # the shell has ended
                break
        self.seen += got
        return got.decode(errors="replace").replace("\r", "")

    def type(self, keys, until=PROMPT):
        os.write(self.fd, keys)
        return self.wait_for(until)

    def end(self):
        _, status = os.waitpid(self.pid, 0)
        return os.waitstatus_to_exitcode(status)


def check(condition, what, seen):
    if not condition:
        raise AssertionError(f"{what}: {seen!r}")


with tempfile.TemporaryDirectory() as home:
    history = os.path.join(home, "history")
    with open(history, "w", encoding="ascii"):
        pass
    os.chmod(history, 0o640)

    t = Terminal(history)
    # Tab completes a unique prefix to its keyword, and lists the candidates of several.
    seen = t.type(b"sh r\t", until=rb"running-config $")
    seen = t.type(b"\n")
    check("aclsh#" in seen, "show running-config runs", seen)
    seen = t.type(b"ip access-list web\npermit tcp any any eq ht\t", until=rb"eq http$")
    seen = t.type(b"\t", until=rb"eq http$")
    check("http  https" in seen, "Tab types what the ports that fit share, then lists them", seen)
    # ? lists what may follow, with a line of help, and gives the line back as it was.
    seen = t.type(b"s ?", until=rb"https $")
    check("log" in seen and "count matching packets" in seen, "? after an entry", seen)
    seen = t.type(b"\n")
    # Ctrl-C drops the line being typed; the edit stays open and nothing is committed.
    seen = t.type(b"deny ip any any\x03")
    check("^C" in seen and seen.rstrip().endswith("aclsh(acl-web)#"), "Ctrl-C leaves the edit open", seen)
    seen = t.type(b"do sh run\n")
    check("permit" not in seen, "nothing committed before the edit ends", seen)
    # Ctrl-D in a list is `end`: it commits.
    seen = t.type(b"\x04")
    check("ip access-list web: committed" in seen, "Ctrl-D commits the list", seen)
    # A whole configuration pasted at once runs line by line.
    seen = t.type(b"configure session maint\nip access-list ssh\n 10 permit tcp any any eq 22\nexit\n"
                  b"interface Ethernet1\n ip access-group ssh in\nexit\nsh session-config diff\n",
                  until=rb"ssh in\s+aclsh\(config-s-maint\)# $")
    check("+   10 permit tcp any any eq 22" in seen, "the session's diff shows the staged entry", seen)
    # Ctrl-D at the top of an open session says so first, and aborts on the second.
    seen = t.type(b"\x04")
    check("commit or abort it" in seen, "Ctrl-D warns of the open session", seen)
    seen = t.type(b"commit\nquit\n", until=rb"committed[\s\S]*quit")
    check(t.end() == 0, "quit ends the shell with status 0", t.seen)

    # The next run has the first one's lines: Ctrl-R finds one, and it runs again.
    check(stat.S_IMODE(os.stat(history).st_mode) == 0o640, "the history file keeps its mode", oct(os.stat(history).st_mode))
    t = Terminal(history)
    seen = t.type(b"\x12list w", until=rb"list w")
    seen = t.type(b"\n")
    check(seen.rstrip().endswith("aclsh(acl-web)#"), "the line found opens the list again", seen)
    seen = t.type(b"\x04\x04", until=rb"committed[\s\S]*\n$")
    check(t.end() == 0, "Ctrl-D at the top ends the shell", t.seen)
    with open(history, encoding="ascii") as f:
        lines = f.read().splitlines()
    check(lines[0] == "_HiStOrY_V2_" and any("session-config" in line for line in lines),
          "history holds both runs", lines)
print("terminal: ok")
