"""One table of changes through every door: aclsh (the program, its outcomes as JSON), Python's
edit block, and the client layer's apply as a C++ agent calls it (Library.apply). A row ends the
same way at each door, with the same refusals, and leaves the same running configuration."""
import json
import os
import subprocess
import tempfile

import pytest

import aclkit
from aclkit import AclType, IpRule

BASE = "permit ip any any"
# (row, capability the platform lacks, dataplane error, entry added at 20, state, refusals)
ROWS = [
    ("accepted", None, None, "permit tcp any 192.0.2.0/24 eq 443", "applied", []),
    ("refused by a capability", ("ip-dscp", "ipDscp"), None, "permit ip any any dscp 10", "refused",
     [("ip access-list web", "dscp not supported")]),
    ("refused by a dataplane", None, "the table is full", "deny ip 198.51.100.0/24 any", "hardware error", []),
]


def through_aclsh(limit, error, entry):
    script = ["dataplane dp1", "ip access-list web", f"10 {BASE}", "exit",
              "interface Ethernet1", "ip access-group web in", "exit"]
    script += [f"platform {limit[0]} off"] if limit else []
    script += [f"dataplane dp1 error {error}"] if error else []
    script += ["ip access-list web", f"20 {entry}", "exit", "show running-config"]
    with tempfile.TemporaryDirectory() as directory:
        path = os.path.join(directory, "change.acl")
        with open(path, "w", encoding="utf-8") as f:
            f.write("\n".join(script) + "\n")
        run = subprocess.run([os.environ["ACLSH"], "--json", "--continue-on-error", path],
                             capture_output=True, text=True, check=False)
    printed = [json.loads(line) for line in run.stdout.splitlines()]
    changes = [p["outcome"] for p in printed if "outcome" in p]
    outcome = changes[-1]  # the row's change, after the setup's
    (running,) = [p["running-config"] for p in printed if "running-config" in p]
    (web,) = [l for l in running["lists"] if l["name"] == "web"]
    entries = [(e["sequence"], e["line"]) for e in web["entries"]]
    bindings = [(b["interface"], b["direction"], b["list"]) for b in running["bindings"]]
    return (outcome["state"], [(r["subject"], r["message"]) for r in outcome["refusals"]], entries, bindings)


def library(limit, error):
    lib = aclkit.Library(aclkit.Store())
    lib.platform.enableAll()
    dp = aclkit.Dataplane(lib, "dp1")
    lib.replaceList("web", AclType.ip, [(10, IpRule(BASE))])
    lib.replaceBindings([("Ethernet1", "in", AclType.ip, "web")])
    if limit:
        setattr(lib.platform, limit[1], False)
    if error:
        dp.forcedError = error
    return lib, dp


def ended(lib, change):
    try:
        outcome = change()
    except aclkit.ChangeError as refused:
        outcome = refused.outcome
    entries = [(sequence, str(rule)) for sequence, rule in lib.list(AclType.ip, "web").currCfg]
    bindings = [(intf, str(direction.name).rstrip("_"), name) for intf, direction, _, name in lib.bindings()]
    return (outcome.state, outcome.refusals, entries, bindings)


def through_edit(limit, error, entry):
    lib, _dp = library(limit, error)

    def change():
        edit = lib.edit("web", AclType.ip)
        with edit as s:
            s.addIpRule(20, IpRule(entry))
        return edit.outcome
    return ended(lib, change)


def through_apply(limit, error, entry):
    lib, _dp = library(limit, error)
    return ended(lib, lambda: lib.apply(lists=[(AclType.ip, "web", [(10, IpRule(BASE)), (20, IpRule(entry))])]))


@pytest.mark.parametrize("row, limit, error, entry, state, refusals", ROWS, ids=[r[0] for r in ROWS])
def test_a_change_ends_the_same_way_through_every_door(row, limit, error, entry, state, refusals):
    kept = [(10, BASE), (20, entry)] if state != "refused" else [(10, BASE)]
    expected = (state, refusals, kept, [("Ethernet1", "in", "web")])
    doors = {"aclsh": through_aclsh, "edit": through_edit, "apply": through_apply}
    assert {door: run(limit, error, entry) for door, run in doors.items()} == {door: expected for door in doors}, row


def test_a_conflicting_edit_is_dropped_and_the_other_work_kept():
    # Only a second writer between an edit's start and its commit makes a conflict; aclsh's own
    # (two shells on one store) is the shell's test.
    lib, _dp = library(None, None)

    def change():
        edit = lib.edit("web", AclType.ip)
        with edit as s:
            s.addIpRule(20, IpRule("deny ip any any"))
            lib.replaceList("web", AclType.ip, [(10, IpRule(BASE)), (30, IpRule("deny udp any any"))])
        return edit.outcome
    assert ended(lib, change) == (
        "conflict", [("ip access-list web", "another session changed it since this edit began")],
        [(10, BASE), (30, "deny udp any any")], [("Ethernet1", "in", "web")])
