#!/usr/bin/env python3
"""ClassBench filter sets to the syntaxes the benchmarks load, so that every tool holds the
same rules.

    tools/classbench-convert.py --to aclsh    ../shared/classbench/acl1_100k > acl1.acl
    tools/classbench-convert.py --to nft      ../shared/classbench/acl1_100k > acl1.nft
    tools/classbench-convert.py --to iptables ../shared/classbench/acl1_100k > acl1.rules
    tools/classbench-convert.py --to nft --generate 100000 > gen100k.nft
    tools/classbench-convert.py --to nft --edit ../shared/classbench/acl1_100k > edit.nft

A filter line is "@SRC/LEN DST/LEN SPLO : SPHI DPLO : DPHI PROTO/MASK FLAGS/MASK", highest
priority first. Each becomes one entry, in the same order: sequence numbers 10, 20, ... for
aclsh, rule order for the packet filters. ClassBench has no action column: every fifth filter
denies, the others permit. Its flags column is not a TCP flag match (it uses bits TCP does not
have) and is left out. Ports are kept for TCP and UDP, the only protocols that carry them in
these sets; a filter giving ports for another protocol is refused.

--generate N makes N distinct TCP filters of its own instead (hosts of the documentation
ranges, one destination port each), for sizes the public sets do not have. --edit writes,
instead of the whole set, the one-rule edit the benchmarks time: the first entry replaced by
the same match with the other action (for aclsh a session on the list, for nft one transaction
that deletes the first rule of a freshly loaded chain, handle 2, and inserts the new one, for
iptables the arguments of a replace of rule 1).
"""
import argparse
import sys

PROTOCOLS = {0x06: "tcp", 0x11: "udp", 0x01: "icmp"}


def filters(lines):
    for number, line in enumerate(lines, 1):
        fields = line.strip().lstrip("@").split("\t")
        if len(fields) < 5:
            continue
        src, dst, sport, dport, proto = fields[:5]
        value, mask = (int(x, 16) for x in proto.split("/"))
        sport = tuple(int(x) for x in sport.split(":"))
        dport = tuple(int(x) for x in dport.split(":"))
        protocol = None if mask == 0 else PROTOCOLS.get(value, str(value))
        ports = sport != (0, 65535) or dport != (0, 65535)
        if ports and protocol not in ("tcp", "udp"):
            sys.exit(f"line {number}: ports given for protocol {proto}")
        yield number, src, dst, sport, dport, protocol, number % 5 != 0


def generated(count):
    for i in range(count):
        src = f"198.51.100.{i % 256}/32"
        dst = f"203.0.113.{(i // 256) % 256}/32"
        port = 1024 + i // 65536
        yield i + 1, src, dst, (0, 65535), (port, port), "tcp", (i + 1) % 5 != 0


def address(prefix, host_word):
    if prefix == "0.0.0.0/0":
        return "any"
    if prefix.endswith("/32"):
        return f"{host_word} {prefix[:-3]}" if host_word else prefix[:-3]
    return prefix


def aclsh_port(lo_hi):
    lo, hi = lo_hi
    if (lo, hi) == (0, 65535):
        return ""
    return f" eq {lo}" if lo == hi else f" range {lo} {hi}"


def aclsh_entry(row):
    number, src, dst, sport, dport, protocol, permit = row
    action = "permit" if permit else "deny"
    return (f"{number * 10} {action} {protocol or 'ip'} {address(src, 'host')}{aclsh_port(sport)}"
            f" {address(dst, 'host')}{aclsh_port(dport)}")


def to_aclsh(rows, name):
    yield f"ip access-list {name}"
    for row in rows:
        yield "   " + aclsh_entry(row)
    yield "exit"


def nft_rule(row):
    _, src, dst, sport, dport, protocol, permit = row
    match = []
    if src != "0.0.0.0/0":
        match.append(f"ip saddr {src}")
    if dst != "0.0.0.0/0":
        match.append(f"ip daddr {dst}")
    if protocol and protocol not in ("tcp", "udp"):
        match.append(f"ip protocol {protocol}")
    for word, (lo, hi) in (("sport", sport), ("dport", dport)):
        if (lo, hi) != (0, 65535):
            match.append(f"{protocol} {word} {lo if lo == hi else f'{lo}-{hi}'}")
    if protocol in ("tcp", "udp") and sport == (0, 65535) and dport == (0, 65535):
        match.append(f"meta l4proto {protocol}")
    return " ".join(match + ["accept" if permit else "drop"])


def to_nft(rows, name):
    yield "table inet classbench {"
    yield f"  chain {name} {{"
    for row in rows:
        yield "    " + nft_rule(row)
    yield "  }"
    yield "}"


def iptables_rule(row):
    _, src, dst, sport, dport, protocol, permit = row
    rule = []
    if src != "0.0.0.0/0":
        rule.append(f"-s {src}")
    if dst != "0.0.0.0/0":
        rule.append(f"-d {dst}")
    if protocol:
        rule.append(f"-p {protocol}")
    for option, (lo, hi) in (("--sport", sport), ("--dport", dport)):
        if (lo, hi) != (0, 65535):
            rule.append(f"{option} {lo if lo == hi else f'{lo}:{hi}'}")
    rule.append("-j ACCEPT" if permit else "-j DROP")
    return " ".join(rule)


def to_iptables(rows, name):
    yield "*filter"
    yield f":{name} - [0:0]"
    for row in rows:
        yield f"-A {name} {iptables_rule(row)}"
    yield "COMMIT"


def edit(tool, first, name):
    changed = first[:-1] + (not first[-1],)
    if tool == "aclsh":
        return [f"ip access-list {name}", f"   no {first[0] * 10}", "   " + aclsh_entry(changed), "exit"]
    if tool == "nft":
        return [f"delete rule inet classbench {name} handle 2",
                f"insert rule inet classbench {name} {nft_rule(changed)}"]
    return [f"-R {name} 1 {iptables_rule(changed)}"]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--to", choices=("aclsh", "nft", "iptables"), required=True)
    parser.add_argument("--name", default="classbench", help="the list's (or chain's) name")
    parser.add_argument("--edit", action="store_true", help="the one-rule edit instead of the set")
    source = parser.add_mutually_exclusive_group(required=True)
    source.add_argument("--generate", type=int, metavar="N", help="N generated filters")
    source.add_argument("file", nargs="?", help="a ClassBench filter set")
    args = parser.parse_args()
    if args.file:
        with open(args.file, encoding="ascii") as f:
            rows = list(filters(f))
    else:
        rows = list(generated(args.generate))
    if args.edit:
        lines = edit(args.to, rows[0], args.name)
    else:
        lines = {"aclsh": to_aclsh, "nft": to_nft, "iptables": to_iptables}[args.to](rows, args.name)
    sys.stdout.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
