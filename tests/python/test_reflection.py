"""The generic path: every operation of ApiSm called by name, attributes read and written by
name, collections as mappings, enumerations by name or number, framework errors as classes."""
import ast
import pathlib

import pytest

import aclkit
from aclkit import AclDirection, AclType, ApiState, ApiType

RULE = aclkit.IpRule("permit tcp 192.0.2.0/24 any eq 443")
IP6 = aclkit.Ip6Rule("permit ipv6 2001:db8::/32 any")
MAC = aclkit.MacRule("permit any any")
REMARK = aclkit.Remark("web servers")

# Arguments for each operation, called in declaration order on a commit session that holds
# one rule; attach, detach and remove need sessions of their own type.
ARGS = {
    "handleRuleBySequence": [10], "initializeRuleMap": [], "updateIpRuleMap": [RULE, 0],
    "updateIp6RuleMap": [IP6, 0], "updateMacRuleMap": [MAC, 0], "updateRemarkMap": [REMARK, 0],
    "handleDpAclUpdateTime": ["dp1"], "remove": [], "exists": [], "getIpRule": [10], "getIp6Rule": [10],
    "getMacRule": [10], "addIpRule": [20, "deny udp any any"], "addIp6Rule": [0, IP6], "addMacRule": [0, MAC],
    "removeRuleBySequence": [30, 40], "removeIpRuleByConfig": [RULE], "removeIp6RuleByConfig": [IP6],
    "removeMacRuleByConfig": [MAC], "addRemark": [REMARK, 5], "removeRemark": [REMARK, 5],
    "clearUdfAceList": [], "populateUdfAceList": [None],
    "updateUdfAliasInAcls": ["key", {"alias": "key", "offset": 2, "pattern": 0x1234, "mask": 0xFFFF}],
    "commit": [], "commitExt": [False], "revert": [], "cleanupOldConfig": [], "attach": ["Ethernet1", "in"],
    "detach": ["Ethernet1", AclDirection.in_], "attachedAcl": ["Ethernet1", 0], "resequence": [100, 10],
    "enableCounters": [], "disableCounters": [], "enableFragments": [], "disableFragments": [],
    "currentAcl": [], "sameRule": ["1", RULE, IP6, MAC], "shouldUpdateAcl": [],
    "addRuleCommon": [0, RULE, IP6, MAC], "waitForHw": [], "dpAclOk": [], "dpAclDpiOk": [],
    "dpAclPreApplyOk": [], "attachedToDp": [], "attachingAclToVlan": [], "createScratchpad": [],
    "getLastSequenceNumber": [], "handleInitialized": [],
}


@pytest.fixture
def store():
    return aclkit.Store()


@pytest.fixture
def lib(store):
    return aclkit.Library(store)


def test_every_operation_of_the_session_is_called_by_name(lib):
    ops = [name for name, _ in aclkit.operations("ApiSm")]
    assert sorted(ops) == sorted(ARGS), "every reflected operation needs arguments here"
    dp = aclkit.Dataplane(lib, "dp1")
    with lib.edit("web", AclType.ip) as s:
        s.addIpRule(10, RULE)
    kinds = {"attach": ApiType.attach, "detach": ApiType.detach, "remove": ApiType.remove}
    results = {}
    for name in sorted(ops, key=lambda op: op == "remove"):  # each on a fresh session; the list goes last
        results[name] = lib.session("web", AclType.ip, kinds.get(name, ApiType.commit)).call(name, *ARGS[name])
    assert results["exists"] is True and results["getIpRule"] == RULE and results["getLastSequenceNumber"] == 10
    assert results["addIpRule"] is ApiState.succeeded and results["sameRule"] is False
    assert results["attach"] is ApiState.succeeded and results["attachedAcl"] == ""  # detach ran after attach
    assert isinstance(results["currentAcl"], aclkit.AclVersion) and list(results["currentAcl"]) == [(10, RULE)]
    assert results["remove"] is ApiState.succeeded and lib.list(AclType.ip, "web") is None
    assert dp.upToDate
    s = lib.session("web", AclType.ip)
    # The methods of the same names are the same operations.
    assert s.getIpRule(100) == aclkit.IpRule() and "getIpRule(U32) -> IpRuleConfig" in s.getIpRule.__doc__
    with pytest.raises(aclkit.Error, match=r"^operation addIpRule takes 2 argument\(s\), not 1$"):
        s.call("addIpRule", RULE)
    with pytest.raises(aclkit.NameError, match="ApiSm has no operation 'addRule'"):
        s.call("addRule")


def test_attributes_collections_and_enumerations_by_name(store, lib):
    assert store.find("acl/param") == lib.mounts["paramConfig"] and store.find("acl/none") is None
    s = lib.session("web", AclType.ip)
    assert {a for a, _ in aclkit.attributes("ApiSm")} == set(s.attributes())
    [s.get(name) for name in s.attributes()]  # every attribute reads, whatever its type
    assert (s.aclName, s.aclType, s.apiType, s.maxSequence) == ("web", AclType.ip, ApiType.commit, 4294967295)
    s.set("dynamic", True)
    assert s.dynamic is True
    with pytest.raises(aclkit.Error, match="read-only"):
        s.set("maxSequence", 1)
    s.set("config", None)  # a pointer stores None as anything else
    assert s.get("config") is None
    with pytest.raises(aclkit.TypeConversionError):
        s.set("paramConfig", lib.mounts["hwConfig"])
    with pytest.raises(aclkit.TypeConversionError, match="expected a number from 0 to 4294967295, not '-1'"):
        s.addIpRule(-1, RULE)
    with pytest.raises(AttributeError):
        s.noSuchThing

    # Collections: live mappings, writable where the collection has setters.
    s = lib.session("web", AclType.ip)
    s.addIpRule(10, RULE)
    s.addRemark(REMARK, 5)
    version = s.currentAcl()
    assert 10 in version.ruleBySequence and 11 not in version.ruleBySequence
    with pytest.raises(KeyError):
        version.ruleBySequence[11]
    version.remarkBySequence[7] = "second"
    del version.remarkBySequence[5]
    assert version.remarkBySequence == {7: aclkit.Remark("second")}
    assert list(version) == [(7, aclkit.Remark("second")), (10, RULE)]
    s.commit()
    config = lib.mounts["config"]
    assert list(config.config) == [AclType.ip] and list(config.config[0].acl) == ["web"]
    assert config.get("config", "ip").acl["web"].currCfg is not None

    # Enumerations by member, number or name; unknown ones refused with the framework's message.
    lib.mounts["paramConfig"].set("aclSupported", "true")
    assert lib.mounts["paramConfig"].aclSupported is True
    ts = lib.session("t", "ipv6", 2)
    assert (ts.aclType, ts.apiType) == (AclType.ipv6, ApiType.attach)
    with pytest.raises(aclkit.EnumError, match="ApiType"):
        lib.session("t", AclType.ip, "commitish")
    assert [m.name for m in AclDirection] == ["in_", "out"] and ApiState.errHw == 12


def test_the_stub_names_every_public_name_and_operation():
    stub = ast.parse((pathlib.Path(aclkit.__file__).parent / "aclkit.pyi").read_text())
    declared = {n.name for n in stub.body if isinstance(n, (ast.ClassDef, ast.FunctionDef))}
    assert {n for n in declared if not n.startswith("_")} == {n for n in dir(aclkit) if not n.startswith("_")}
    session = next(n for n in stub.body if isinstance(n, ast.ClassDef) and n.name == "ApiSm")
    methods = {n.name for n in session.body if isinstance(n, ast.FunctionDef)}
    assert {name for name, _ in aclkit.operations("ApiSm")} <= methods
