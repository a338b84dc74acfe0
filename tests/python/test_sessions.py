"""A command handler's work from Python: lists edited and committed with two dataplanes, the
hardware's answers and errors, capability refusals, the commit session as a context manager,
rule records and the packet check."""
import pytest

import aclkit
from aclkit import AclDirection, AclType, ApiState, ApiType, IpRule

WEB = IpRule("permit tcp any 192.0.2.0/24 eq 443")
SSH = IpRule("permit tcp 198.51.100.0/24 any eq 22")
DENY = IpRule("deny ip any any log")


@pytest.fixture
def lib():
    lib = aclkit.Library(aclkit.Store())
    platform = lib.mounts["paramConfig"]
    for name in platform.attributes():
        if name.endswith("Supported"):
            platform.set(name, True)
    return lib


def bound(lib, *dataplanes):
    """Dataplanes made before the sessions, and the list web bound in on Ethernet1."""
    made = [aclkit.Dataplane(lib, name) for name in dataplanes]
    assert lib.session("web", AclType.ip, ApiType.attach).attach("Ethernet1", "in") == ApiState.succeeded
    return made


def entries(lib, name="web"):
    return list(lib.list(AclType.ip, name).currCfg)


def test_two_dataplanes_wait_program_fail_and_revert(lib):
    dp1, dp2 = bound(lib, "dp1", "dp2")
    dp2.delay = 1
    s = lib.session("web", AclType.ip)
    assert s.addIpRule(0, WEB) is ApiState.succeeded  # no sequence: after the last, by tens
    assert s.addIpRule(25, SSH) is ApiState.succeeded
    assert s.addIpRule(0, "deny ip any any log") is ApiState.succeeded
    assert s.commitExt(False) is ApiState.waitingForHw
    assert dp1.upToDate and dp2.pending and s.apiState is ApiState.waitingForHw
    dp2.tick()
    assert s.apiState is ApiState.succeeded and dp2.upToDate
    committed = [(10, WEB), (25, SSH), (35, DENY)]
    assert entries(lib) == committed
    assert str(lib.list(AclType.ip, "web")).splitlines()[1] == "   10 permit tcp any 192.0.2.0/24 eq 443"

    # The packet check sees what each dataplane programmed.
    https = aclkit.Packet.ip("203.0.113.9", "192.0.2.80", 6, dstPort=443)
    verdict = dp2.check("Ethernet1", AclDirection.in_, https)
    assert (verdict.sequence, verdict.rule, verdict.action, verdict.acl) == (10, WEB, aclkit.RuleAction.permit, "web")
    assert dp1.check("Ethernet1", "out", https).implicitDeny

    # A dataplane that fails: errHw with its message, then revert to the committed list.
    dp2.forcedError = "the TCAM is full"
    s = lib.session("web", AclType.ip)
    assert s.removeRuleBySequence(10, 10) is ApiState.succeeded
    assert s.commitExt(False) is ApiState.waitingForHw
    dp2.tick()
    assert s.apiState is ApiState.errHw
    assert s.errString == {"dp2": "dp2 could not program its lists: the TCAM is full"}
    assert entries(lib) == committed[1:]
    dp2.forcedError = None
    assert s.revert() is ApiState.waitingForHw
    dp2.tick()
    assert s.apiState is ApiState.succeeded and entries(lib) == committed
    assert dp2.check("Ethernet1", AclDirection.in_, https).sequence == 10
    assert dp2.tables == {(AclType.ip, "Ethernet1", AclDirection.in_): ("web", committed)} and dp2.entryCount == 3

    # A dataplane short of room refuses the run and keeps what it holds.
    dp1.capacity = 3
    s = lib.session("web", AclType.ip)
    s.addIpRule(0, WEB.replace(log=True))
    assert s.commitExt(False) is ApiState.waitingForHw and dp1.capacity == 3
    dp2.tick()
    assert s.apiState is ApiState.errHw and dp1.lastRun["errorKey"] == "capacity" and dp1.entryCount == 3
    dp1.capacity = None
    assert s.revert() is ApiState.waitingForHw
    dp2.tick()
    assert s.apiState is ApiState.succeeded and dp1.upToDate and entries(lib) == committed


def test_capability_refusal_reads_from_errString(lib):
    (dp,) = bound(lib, "dp1")  # kept: a dataplane that goes stops answering
    dp.delay = 1  # the session keeps what revert needs while it waits
    lib.mounts["paramConfig"].set("loggingSupported", False)
    s = lib.session("web", AclType.ip)
    s.addIpRule(10, DENY)
    assert s.commitExt(False) is ApiState.waitingForHw
    assert s.dpAclOk() is False
    assert list(s.errString.values()) == ["logging not supported"]
    assert s.revert() is ApiState.succeeded and lib.list(AclType.ip, "web") is None
    two = IpRule("permit ip any any payload 2 0x1 0xff payload 6 0x2 0xff")
    assert lib.payloadRefusal(two, AclType.ip).startswith("a rule here may match at most 1 payload element")
    assert lib.payloadRefusal(two.replace(payload="2,0x1,0xff,,"), AclType.ip) is None


def test_rule_records_read_write_compare_hash_and_refuse_with_the_library_messages():
    with pytest.raises(aclkit.RangeError, match=r"^IpFilter::vlan < 0 or > 4095 not allowed$"):
        WEB.replace(vlan=4096)
    with pytest.raises(aclkit.ParseError) as error:
        IpRule("permit tcp any any eq http-ish")
    assert (str(error.value), error.value.column, error.value.expected) == (
        "expected a port number or name at column 23", 23, "a port number or name")
    with pytest.raises(aclkit.NameError, match="IpRuleConfig has no field 'dstport'"):
        IpRule(dstport=80)

    made = IpRule(action="deny", protocol=6, protocolMask=0xFF, dst="192.0.2.0", dstMask="255.255.255.0",
                  dstPort="eq 443", log=True)
    assert str(made) == "deny tcp any 192.0.2.0/24 eq 443 log" and made == IpRule(str(made))
    assert {made, IpRule(str(made)), WEB} == {made, WEB} and sorted([made, WEB]) == sorted([WEB, made])
    assert made.action is aclkit.RuleAction.deny and made.dst == "192.0.2.0"
    assert made.dstPort == {"op": aclkit.ValueOp.eq, "low": 443, "high": 0}
    assert made.replace(action="permit", log=False) == WEB and made.action is aclkit.RuleAction.deny
    assert made.fields()["protocol"] == 6 and "filter" not in made.fields()
    assert repr(WEB) == "IpRule('permit tcp any 192.0.2.0/24 eq 443')"
    assert aclkit.parse_rule("20 permit 10.0.0.0/8 log", AclType.ip, True) == (20, IpRule("permit ip 10.0.0.0/8 any log"))
    assert aclkit.parse_rule("remark web servers") == (None, aclkit.Remark("web servers"))
    assert str(aclkit.Ip6Rule("deny ipv6 2001:db8::/32 any")) == "deny ipv6 2001:db8::/32 any"
    assert aclkit.MacRule("permit host 00:00:5e:00:53:01 any").src == "00:00:5e:00:53:01"
    with pytest.raises(ValueError, match="has a sequence number"):
        IpRule("10 permit ip any any")


def test_the_commit_session_as_a_context_manager(lib):
    (dp,) = bound(lib, "dp1")
    with lib.edit("web", AclType.ip) as s:
        s.addIpRule(0, WEB)
    assert s.apiState is ApiState.succeeded and entries(lib) == [(10, WEB)]

    with pytest.raises(RuntimeError):  # an edit never committed is dropped
        with lib.edit("web", AclType.ip) as s:
            s.addIpRule(0, SSH)
            raise RuntimeError("the handler failed")
    assert s.currentAcl() is None and s.commit() is ApiState.succeeded  # nothing left to commit
    with pytest.raises(RuntimeError):
        with lib.edit("other", AclType.ip) as s:
            s.addIpRule(0, SSH)
            raise RuntimeError("the handler failed")
    assert entries(lib) == [(10, WEB)] and lib.list(AclType.ip, "other") is None

    dp.delay = 1  # a commit the block made, still waiting for the hardware, is reverted
    with pytest.raises(RuntimeError):
        with lib.edit("web", AclType.ip) as s:
            s.addIpRule(0, SSH)
            assert s.commitExt(False) is ApiState.waitingForHw
            assert entries(lib) == [(10, WEB), (20, SSH)]
            raise RuntimeError("the handler failed")
    dp.tick()
    assert entries(lib) == [(10, WEB)] and s.apiState is ApiState.succeeded and dp.upToDate


def test_a_whole_list_handed_over_changes_only_what_differs_and_crosses_openconfig(lib):
    dp1, = bound(lib, "dp1")
    first = lib.replaceList("web", AclType.ip, [(10, WEB), (20, aclkit.Remark("ssh below")), (30, SSH)])
    assert first.state is ApiState.succeeded and first.added == [10, 20, 30]
    assert lib.replaceList("web", AclType.ip, [(30, SSH), (20, aclkit.Remark("ssh below")), (10, WEB)]).session is None
    changed = lib.replaceList("web", AclType.ip, [(10, WEB), (20, aclkit.Remark("ssh below")), (30, DENY)])
    assert (changed.removed, changed.added, changed.kept) == ([30], [30], [10, 20])
    assert (dp1.lastRun["added"], dp1.lastRun["removed"]) == (1, 1)
    with pytest.raises(ValueError, match="sequence"):
        lib.replaceList("web", AclType.ip, [(0, WEB)])
    assert entries(lib) == [(10, WEB), (20, aclkit.Remark("ssh below")), (30, DENY)]

    document, findings = lib.exportOpenConfig()
    assert any("remark" in f for f in findings), findings  # remarks have no place in the model
    other = aclkit.Library(aclkit.Store())
    imported = other.importOpenConfig(document)
    assert imported.complete and [(n, t) for n, t, _ in imported.lists] == [("web", AclType.ip)]
    assert other.bindings() == lib.bindings() == [("Ethernet1", AclDirection.in_, AclType.ip, "web")]
    assert [rule for _, rule in entries(other)] == [WEB, DENY]
    with pytest.raises(aclkit.OpenConfigError):
        other.importOpenConfig('{"acl-sets": {"acl-set": [{"name": "x", "type": "ACL_MIXED"}]}}')
    assert [rule for _, rule in entries(other)] == [WEB, DENY]
