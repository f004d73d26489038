#!/usr/bin/env python3
"""Writes fuzz/corpus/<target>/ from the real provider captures in shared/peers.

Each fuzz target starts from inputs that real Codex CLI and Claude Code runs produced, so that
mutation begins past the JSON syntax and inside the parsers' own branches. Run again after new
captures arrive; the output is deterministic (seeds are named by content hash).

    fuzz/make_seeds.py [PEERS_DIR]
"""
import gzip
import hashlib
import json
import re
import pathlib
import shutil
import sys

ROOT = pathlib.Path(__file__).resolve().parent
PEERS = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT.parent.parent / "shared" / "peers"
CORPUS = ROOT / "corpus"
DICTS = ROOT / "dict"
JSON_TOKENS = ['{', '}', '[', ']', ':', ',', '"', 'true', 'false', 'null', '-0', '1e99', '\\u0000',
               '\\ud800', '\\"', '\\n']
MAX_SEED = 8 * 1024
MAX_SEEDS = 60


def lines_of(paths):
    for path in sorted(paths):
        opener = gzip.open if path.suffix == ".gz" else open
        with opener(path, "rb") as handle:
            for line in handle:
                yield line.rstrip(b"\n")


def shape(line):
    """A line's structure without its values, so that one seed stands for each kind of line."""
    try:
        value = json.loads(line)
    except ValueError:
        return b"invalid"

    def walk(node, depth=0):
        if depth > 3:
            return "…"
        if isinstance(node, dict):
            kind = node.get("type") or node.get("method") or node.get("hook_event_name") or ""
            return "{%s:%s}" % (kind, ",".join(f"{k}={walk(v, depth + 1)}" for k, v in sorted(node.items())))
        if isinstance(node, list):
            return "[%s]" % (walk(node[0], depth + 1) if node else "")
        return type(node).__name__

    return walk(value).encode()


def distinct(items, key=shape):
    seen, kept = set(), []
    for item in items:
        if not item or len(item) > MAX_SEED:
            continue
        k = key(item)
        if k not in seen:
            seen.add(k)
            kept.append(item)
    return kept[:MAX_SEEDS]


def write(target, seeds, words=()):
    folder = CORPUS / target
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for seed in seeds:
        (folder / hashlib.sha1(seed).hexdigest()[:16]).write_bytes(seed)
    write_dictionary(target, seeds, words)
    print(f"{target}: {len(seeds)} seeds")


def write_dictionary(target, seeds, extra):
    """JSON syntax plus every key and short string value the seeds hold, for -dict=."""
    words = set()

    def walk(node):
        if isinstance(node, dict):
            for key, value in node.items():
                words.add(json.dumps(key))
                walk(value)
        elif isinstance(node, list):
            for value in node:
                walk(value)
        elif isinstance(node, str) and re.fullmatch(r"[A-Za-z_][A-Za-z0-9_./-]{0,23}", node):
            words.add(json.dumps(node))  # enum-like values, not dates, ids or prose

    for seed in seeds:
        for piece in [seed] + seed.split(b"\n"):
            try:
                walk(json.loads(piece.lstrip(b"\x01\x03\x07\xff")))
            except ValueError:
                pass
    entries = (list(extra) if extra else JSON_TOKENS) + sorted(words)[:400]
    DICTS.mkdir(exist_ok=True)
    escaped = ("".join(c if c.isprintable() and c not in '\\"' else "\\x%02X" % ord(c) for c in w)
               for w in entries)
    (DICTS / f"{target}.dict").write_text("".join(f'"{w}"\n' for w in escaped))


def main():
    claude, codex = PEERS / "claude" / "artifacts", PEERS / "codex" / "artifacts"
    transcripts = [p for p in claude.rglob("*.jsonl") if "/projects/" in str(p)]
    rollouts = list(codex.rglob("rollout-*.jsonl"))
    hook_payloads = [json.loads(line).get("payload") for line in lines_of(claude.rglob("*.hooks.jsonl"))]
    hook_payloads = [json.dumps(p).encode() for p in hook_payloads if isinstance(p, dict)]
    frames = []
    for line in lines_of(codex.rglob("app_server_transcript.jsonl")):
        record = json.loads(line)
        if record.get("dir") == "s2c":
            frames.append(json.dumps(record["msg"], separators=(",", ":")).encode())

    transcript_lines = distinct(lines_of(transcripts))
    write("claudetranscriptline_fuzz", transcript_lines
          # whole tails as the tail reader sees them (first byte odd: read starts mid-line)
          + [b"\x01" + b"\n".join(transcript_lines[:8]) + b"\n"])
    write("rolloutline_fuzz", distinct(lines_of(rollouts))
          + [b"\n".join(list(lines_of(rollouts[:1]))[:12])])
    write("hookbridgepayload_fuzz", distinct(hook_payloads))
    # Framer input: a byte for the frame limit and one for the chunk size, then child output.
    write("codexappserverframe_fuzz",
          [bytes([255, 7]) + f + b"\n" for f in distinct(frames)]
          + [bytes([3, 1]) + b"\n".join(frames[:6]) + b"\n"])
    settings = [p.read_bytes() for p in sorted(claude.rglob("settings.json"))]
    write("claudehooksettings_fuzz", distinct(settings, key=lambda b: b))
    registry = [p.read_bytes() for p in sorted(claude.rglob("*.json.redacted"))]
    meta = [p.read_bytes() for p in sorted(claude.rglob("*.meta.json"))]
    write("claudemanifest_fuzz", distinct(registry + meta, key=lambda b: b) + [
        b'{"sessionId":"s-1","cliSessionId":"c-1","cwd":"/w","originCwd":"/w","title":"t",'
        b'"createdAt":1795380315000,"lastActivityAt":1795380316000,"isArchived":false,'
        b'"model":"m","bridgeSessionIds":["b-1"],"parentSessionId":"p-1","completedTurns":2}',
        b'{"version":2,"observations":{"s-1":{"status":"completed","observedAt":815000000.5,'
        b'"lastUserSubmittedAt":814999990}},"inputRequests":{"s-2":{"requestedAt":815000001}},'
        b'"backgroundTaskSnapshots":{"s-3":{"activeTaskCount":1,"observedAt":815000002}}}'])
    write("desktopentry_fuzz", [
        b"[Desktop Entry]\nType=Application\nName=Codex\nExec=/usr/bin/codex-desktop %u\n"
        b"MimeType=x-scheme-handler/codex;\n",
        b"[Default Applications]\nx-scheme-handler/codex=codex.desktop;other.desktop\n"
        b"[Added Associations]\nx-scheme-handler/claude=claude.desktop;\n",
        b"[Desktop Entry]\nExec=\"/opt/with space/app\" --flag=\"a\\\\b\" %U %%\n"],
          ["[Desktop Entry]", "[Default Applications]", "[Added Associations]", "Exec=", "Type=",
           "MimeType=", "x-scheme-handler/codex", "%u", "%U", "%f", "%%", "\\\\", "\"", ";", "\n"])
    write("gitmetadata_fuzz", [
        b"gitdir: ../.git/worktrees/feature\n", b"../..\n",
        b'[submodule "lib"]\n\tpath = vendor/lib\n\turl = git@github.com:a/lib.git\n',
        b"https://user@github.com:443/Org/Repo.git/", b"ssh://git@host/org/repo"],
          ["gitdir:", "[submodule", "path", "url", "=", ".git", "://", "git@", ":", "/", "\n", "\t"])


if __name__ == "__main__":
    main()
