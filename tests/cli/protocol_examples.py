#!/usr/bin/env python3
"""Runs the examples of docs/protocol.md and compares their output with the text written there.

    protocol_examples.py --helper PATH --doc protocol.md --examples DIR
                         [--sound-server PATH] [--env NAME=VALUE]... [--require WORD,...]
                         [--update]

The reference's examples are data. An example is a fenced block whose info string is
`sh example` (more words after it name what the example needs), holding one shell command
line, followed (blank lines between are allowed) by a fenced block whose info string is
`output`, holding what the command prints on standard output:

    ```sh example
    tallowbrook-helper rtf-text letter.rtf
    ```
    ```output
    {"type":"line","text":"Dear Ms Müller,"}
    {"type":"done"}
    ```

Every command runs with bash in one scratch folder, in the order of the document, so an example
may use a file that an earlier one wrote. The scratch folder starts as a copy of DIR (the
bundled examples: scan.png, letter.rtf, notes.json). `tallowbrook-helper` is the helper given
with --helper (its folder comes first on PATH); standard input is empty unless the command line
feeds it; the environment has no TALLOWBROOK_* variable unless the command line sets one, and
holds each --env NAME=VALUE (for a test's own files, such as a generated model, which an
example then names as "$NAME").

Comparison: the output block must equal standard output line for line, followed by the line
"(exit status N)" when the command's exit status N is not 0. Two placeholders stand for what
differs between runs (timings, sizes, voices of the machine):
    …   (U+2026) inside a line: any characters, none included, within that line;
    ⋮   (U+22EE) alone on a line: any number of whole lines, none included.

Words after `example` in the info string:
    sound-server   a private PulseAudio server (the --sound-server script) runs for the
                   example, and its PULSE_SERVER, HOME and XDG_RUNTIME_DIR are exported.

--require lists subcommand words of which at least one example must exist.
--update rewrites every output block that does not match with the real output (placeholders
have to be put back by hand), instead of failing.
Exit status 0 when every example matched; 1 otherwise.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

FENCE = re.compile(r"^(```+)\s*(.*)$")
ANY_TEXT = "\u2026"  # …
ANY_LINES = "\u22ee"  # ⋮
TIMEOUT_S = 180


class Example:
    def __init__(self, command, needs, expected, output_first, output_last, line):
        self.command = command
        self.needs = needs
        self.expected = expected
        self.output_first = output_first  # index of the first line inside the output block
        self.output_last = output_last  # index of the closing fence
        self.line = line  # 1-based line number of the command block, for messages


def parse(lines):
    """Finds the example pairs; raises ValueError for a command block without its output."""
    examples = []
    i = 0
    while i < len(lines):
        m = FENCE.match(lines[i])
        if not m:
            i += 1
            continue
        fence, info = m.group(1), m.group(2).split()
        close = i + 1
        while close < len(lines) and lines[close].rstrip() != fence:
            close += 1
        if close == len(lines):
            raise ValueError(f"line {i + 1}: the fenced block is not closed")
        if info[:2] != ["sh", "example"]:
            i = close + 1
            continue
        body = lines[i + 1 : close]
        if len(body) != 1 or not body[0].strip():
            raise ValueError(f"line {i + 1}: an example holds exactly one command line")
        j = close + 1
        while j < len(lines) and not lines[j].strip():
            j += 1
        m2 = FENCE.match(lines[j]) if j < len(lines) else None
        if not m2 or m2.group(2).split() != ["output"]:
            raise ValueError(f"line {i + 1}: an example must be followed by an output block")
        out_close = j + 1
        while out_close < len(lines) and lines[out_close].rstrip() != m2.group(1):
            out_close += 1
        if out_close == len(lines):
            raise ValueError(f"line {j + 1}: the output block is not closed")
        examples.append(
            Example(body[0], info[2:], lines[j + 1 : out_close], j + 1, out_close, i + 1)
        )
        i = out_close + 1
    return examples


def pattern(expected):
    """The expected lines as one regular expression over the output joined with line feeds."""
    parts = []
    for line in expected:
        if line.strip() == ANY_LINES:
            parts.append(r"(?:[^\n]*\n)*")
        else:
            pieces = [re.escape(p) for p in line.split(ANY_TEXT)]
            parts.append(r"[^\n]*".join(pieces) + r"\n")
    return re.compile("".join(parts), re.DOTALL)


def clean_environment(helper_dir):
    env = {k: v for k, v in os.environ.items() if not k.startswith("TALLOWBROOK_")}
    env["PATH"] = helper_dir + os.pathsep + env.get("PATH", "/usr/bin:/bin")
    env["LC_ALL"] = "C.UTF-8"
    return env


def start_sound_server(script, folder, env):
    out = subprocess.run([script, "start", folder], env=env, capture_output=True, text=True,
                         timeout=60)
    if out.returncode != 0:
        raise RuntimeError(f"the sound server did not start: {out.stderr.strip()}")
    server_env = dict(env)
    for name, value in re.findall(r"(\w+)=(\S+)", out.stdout):
        server_env[name] = value.strip("'\"")
    return server_env


def run(example, scratch, env, sound_server):
    if "sound-server" in example.needs and not sound_server:
        raise RuntimeError("this example needs --sound-server")
    server_folder = None
    try:
        if "sound-server" in example.needs:
            server_folder = tempfile.mkdtemp(prefix="sound-", dir="/tmp")
            env = start_sound_server(sound_server, server_folder, env)
        done = subprocess.run(["bash", "-c", example.command], cwd=scratch, env=env,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              timeout=TIMEOUT_S)
    finally:
        if server_folder:
            subprocess.run([sound_server, "stop", server_folder], env=env,
                           capture_output=True, timeout=60)
            # The server may still be removing its files as it exits.
            for _ in range(50):
                shutil.rmtree(server_folder, ignore_errors=True)
                if not os.path.exists(server_folder):
                    break
                time.sleep(0.1)
    text = done.stdout.decode("utf-8", errors="replace")
    lines = text.splitlines()
    if done.returncode != 0:
        lines.append(f"(exit status {done.returncode})")
    return lines


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--helper", required=True)
    parser.add_argument("--doc", required=True)
    parser.add_argument("--examples", required=True)
    parser.add_argument("--sound-server")
    parser.add_argument("--env", action="append", default=[])
    parser.add_argument("--require", default="")
    parser.add_argument("--update", action="store_true")
    options = parser.parse_args()

    helper = os.path.abspath(options.helper)
    if os.path.basename(helper) != "tallowbrook-helper" or not os.access(helper, os.X_OK):
        sys.exit(f"{helper} is not an executable tallowbrook-helper")
    with open(options.doc, encoding="utf-8") as f:
        lines = f.read().split("\n")
    try:
        examples = parse(lines)
    except ValueError as error:
        sys.exit(f"{options.doc}: {error}")
    if not examples:
        sys.exit(f"{options.doc}: no examples found")

    covered = set()
    for example in examples:
        words = example.command.split()
        for k, word in enumerate(words[:-1]):
            if word.endswith("tallowbrook-helper"):
                covered.add(words[k + 1])
    missing = [w for w in options.require.split(",") if w and w not in covered]

    env = clean_environment(os.path.dirname(helper))
    for setting in options.env:
        name, _, value = setting.partition("=")
        env[name] = value
    scratch = tempfile.mkdtemp(prefix="protocol-examples-")
    failures = 0
    try:
        shutil.copytree(options.examples, scratch, dirs_exist_ok=True)
        for example in examples:
            try:
                actual = run(example, scratch, env, options.sound_server)
            except (RuntimeError, subprocess.TimeoutExpired) as error:
                actual = [f"(not run: {error})"]
            if pattern(example.expected).fullmatch("".join(l + "\n" for l in actual)):
                print(f"ok    line {example.line}: {example.command}")
                continue
            failures += 1
            print(f"FAIL  line {example.line}: {example.command}")
            print("  written:")
            print("".join(f"    {l}\n" for l in example.expected), end="")
            print("  printed:")
            print("".join(f"    {l}\n" for l in actual), end="")
            if options.update:
                example.actual = actual
    finally:
        shutil.rmtree(scratch, ignore_errors=True)

    if options.update and failures:
        # Replace from the end so that earlier line numbers stay valid.
        for example in reversed(examples):
            if hasattr(example, "actual"):
                lines[example.output_first : example.output_last] = example.actual
        with open(options.doc, "w", encoding="utf-8") as f:
            f.write("\n".join(lines))
        print(f"{failures} output block(s) rewritten in {options.doc}")
        failures = 0

    print(f"{len(examples)} examples, {failures} failed")
    if missing:
        print("no example for: " + ", ".join(missing))
    return 1 if failures or missing else 0


if __name__ == "__main__":
    sys.exit(main())
