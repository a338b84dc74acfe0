"""What the module adds over the library, each once: rule records read, written, compared and
hashed; a dataplane's settings, reports and verdicts as Python values; the commit session as a
context manager; whole lists and OpenConfig as tuples; errors with the library's messages. The
flows themselves are the C++ tests'."""
import copy
import pickle

import pytest

import aclkit
from aclkit import AclDirection, AclType, ApiState, ApiType, IpRule

WEB = IpRule("permit tcp any 192.0.2.0/24 eq 443")
SSH = IpRule("permit tcp 198.51.100.0/24 any eq 22")


@pytest.fixture
def lib():
    return aclkit.Library(aclkit.Store())


def entries(lib, name="web"):
    return list(lib.list(AclType.ip, name).currCfg)


def test_rule_records_read_write_compare_and_hash():
    made = IpRule(action="deny", protocol=6, protocolMask=0xFF, dst="192.0.2.0", dstMask="255.255.255.0",
                  dstPort="eq 443", log=True)
    assert str(made) == "deny tcp any 192.0.2.0/24 eq 443 log" and made == IpRule(str(made))
    assert {made, IpRule(str(made)), WEB} == {made, WEB} and sorted([made, WEB]) == sorted([WEB, made])
    assert made.dstPort == {"op": aclkit.ValueOp.eq, "low": 443, "high": 0}
    assert made.replace(action="permit", log=False) == WEB and made.action is aclkit.RuleAction.deny
    assert made.fields()["protocol"] == 6 and "filter" not in made.fields()
    assert repr(WEB) == "IpRule('permit tcp any 192.0.2.0/24 eq 443')"
    assert aclkit.parse_rule("20 permit 10.0.0.0/8 log", AclType.ip, True) == (20, IpRule("permit ip 10.0.0.0/8 any log"))
    assert aclkit.parse_rule("remark web servers") == (None, aclkit.Remark("web servers"))
    assert aclkit.MacRule("permit host 00:00:5e:00:53:01 any").src == "00:00:5e:00:53:01"
    with pytest.raises(aclkit.RangeError, match=r"^IpFilter::vlan < 0 or > 4095 not allowed$"):
        WEB.replace(vlan=4096)
    with pytest.raises(aclkit.TypeConversionError, match=r"^dstPort: expected a number from 0 to 65535, not '70000'$"):
        WEB.replace(dstPort="eq 70000")
    # Values: repr evaluates back (a record no line can carry, by its fields), pickle and copy.
    unwritable = IpRule(src="198.51.100.1", srcMask="255.255.255.0")  # host bits: no line holds it
    for value in (made, unwritable, aclkit.Remark("web servers")):
        assert eval(repr(value), vars(aclkit)) == value == pickle.loads(pickle.dumps(value)) == copy.deepcopy(value)
    assert repr(aclkit.Remark("x")) == "Remark('x')" and aclkit.__version__.count(".") == 2
    with pytest.raises(aclkit.ParseError) as error:
        IpRule("permit tcp any any eq http-ish")
    assert (str(error.value), error.value.column, error.value.expected) == (
        "expected a port number or name at column 23", 23, "a port number or name")
    with pytest.raises(aclkit.NameError, match="IpRuleConfig has no field 'dstport'"):
        IpRule(dstport=80)
    with pytest.raises(ValueError, match="has a sequence number"):
        IpRule("10 permit ip any any")


def test_a_dataplanes_settings_reports_and_verdicts_are_python_values(lib):
    dp = aclkit.Dataplane(lib, "dp1")
    assert lib.session("web", AclType.ip, ApiType.attach).attach("Ethernet1", "in") is ApiState.succeeded
    dp.delay = 1
    s = lib.session("web", AclType.ip)
    assert s.addIpRule(0, WEB) is ApiState.succeeded and s.commitExt(False) is ApiState.waitingForHw and dp.pending
    dp.tick()
    assert s.apiState is ApiState.succeeded and dp.upToDate
    https = aclkit.Packet.ip("203.0.113.9", "192.0.2.80", 6, dstPort=443)
    verdict = dp.check("Ethernet1", AclDirection.in_, https)
    assert (verdict.sequence, verdict.rule, verdict.action, verdict.acl) == (10, WEB, aclkit.RuleAction.permit, "web")
    missed = dp.check("Ethernet1", "out", https)
    assert missed.implicitDeny and (missed.sequence, missed.rule) == (None, None)
    dp.delay = 0
    dp.forcedError = "the TCAM is full"
    s = lib.session("web", AclType.ip)
    s.addIpRule(25, "permit tcp 198.51.100.0/24 any eq 22")
    assert s.commitExt(False) is ApiState.errHw
    assert s.errString == {"dp1": "dp1 could not program its lists: the TCAM is full"}
    dp.forcedError = None
    assert s.revert() is ApiState.succeeded and dp.tables == {
        (AclType.ip, "Ethernet1", AclDirection.in_): ("web", [(10, WEB)])}
    assert (dp.entryCount, dp.lastRun["errorKey"], dp.capacity) == (1, "", None)


def test_the_commit_session_as_a_context_manager_and_whole_lists(lib):
    with lib.edit("web", AclType.ip) as s:
        s.addIpRule(0, WEB)
    assert s.apiState is ApiState.succeeded and entries(lib) == [(10, WEB)]
    assert str(lib.list(AclType.ip, "web")).splitlines()[1] == "   10 permit tcp any 192.0.2.0/24 eq 443"
    with pytest.raises(RuntimeError):  # an edit never committed is dropped
        with lib.edit("other", AclType.ip) as s:
            s.addIpRule(0, SSH)
            raise RuntimeError("the handler failed")
    assert lib.list(AclType.ip, "other") is None and s.currentAcl() is None

    with pytest.raises(aclkit.AssertionError, match=r"^apiType\(\) == attach_$"):  # and the interpreter lives on
        lib.session("web", AclType.ip).attach("Ethernet1", "in")
    lib.platform.acl = True  # IPv4 lists, without their optional matches
    with pytest.raises(aclkit.NameError, match="^the platform has no capability 'loging' "):
        lib.platform.loging = False
    assert lib.replaceBindings([("Ethernet1", "in", AclType.ip, "web")]).bindings == [
        ("attached", ("Ethernet1", AclDirection.in_, AclType.ip, "web"), ApiState.succeeded)]
    # A rule the platform cannot hold on a bound list: refused, whichever door, the list as it was.
    dscp = IpRule("permit ip any any dscp 10")
    with pytest.raises(aclkit.ChangeError) as refused:
        with lib.edit("web", AclType.ip) as s:
            s.addIpRule(0, dscp)
    assert refused.value.outcome.state == "refused" and refused.value.outcome.refusals[0][0] == "ip access-list web"
    assert str(refused.value).startswith("refused: ip access-list web: ") and entries(lib) == [(10, WEB)]
    with pytest.raises(aclkit.ChangeError, match="^refused: "):
        lib.replaceList("web", AclType.ip, [(10, dscp)])
    assert entries(lib) == [(10, WEB)]

    edit = lib.edit("web", AclType.ip)
    with edit as s:
        s.addIpRule(30, SSH)
    changed = lib.replaceList("web", AclType.ip, [(10, WEB), (20, aclkit.Remark("ssh below")), (30, SSH)])
    (web,) = changed.lists
    assert (web.removed, web.added, web.kept, changed.state) == ([], [20], [10, 30], "applied")
    assert lib.revert(changed).state == "applied" and entries(lib) == [(10, WEB), (30, SSH)]
    lib.replaceList("web", AclType.ip, [(10, WEB), (20, aclkit.Remark("ssh below")), (30, SSH)])
    with pytest.raises(aclkit.ChangeError, match=r"^conflict: ip access-list web: changed since; not reverted$"):
        lib.revert(edit.outcome)  # the replace came after it
    with pytest.raises(ValueError, match="sequence"):
        lib.replaceList("web", AclType.ip, [(0, WEB)])
    document, findings = lib.exportOpenConfig()
    assert any("remark" in f for f in findings), findings  # remarks have no place in the model
    other = aclkit.Library(aclkit.Store())
    other.platform.enableAll()
    imported = other.importOpenConfig(document)
    assert imported.outcome.state == "applied" and [(l.name, l.type) for l in imported.outcome.lists] == [
        ("web", AclType.ip)]
    assert other.bindings() == lib.bindings() == [("Ethernet1", AclDirection.in_, AclType.ip, "web")]
    assert [rule for _, rule in entries(other)] == [WEB, SSH]
    with pytest.raises(aclkit.OpenConfigError):
        other.importOpenConfig('{"acl-sets": {"acl-set": [{"name": "x", "type": "ACL_MIXED"}]}}')
    lib.replaceList("web", AclType.ip, [(10, IpRule("permit tcp any any neq 80"))])
    with pytest.raises(aclkit.OpenConfigExportError, match=r"^web \(ACL_IPV4\) entry 10: dstPort=neq 80: "):
        lib.exportOpenConfig()
    document, findings = lib.exportOpenConfig(skipLists=True)
    assert '"name": "web"' not in document and findings == [
        "web (ACL_IPV4) entry 10: dstPort=neq 80: not in the model; the list is left out"]
    assert lib.payloadRefusal(IpRule("permit ip any any payload 2 0x1 0xff payload 6 0x2 0xff"), AclType.ip)
