#!/usr/bin/env python3
"""The house rule over #include lines of src/.

  base/                 the floor: includes nothing of ours but itself
  text/, audio/         shared folders: themselves and base/
  ocr/ documents/ record/ speech/ answer/ mcp/
                        jobs: themselves, base/, text/, audio/ (never another job, never cli/)
  cli/                  the top: may include every folder (dispatch names every job)
  main.cpp              cli/ and base/

check_includes.py SRC_DIR    prints each include that breaks the rule; exit 1 if any does
check_includes.py --self-test checks the checker on small trees it makes
"""
import os
import re
import sys
import tempfile

SHARED = {"base": {"base"}, "text": {"base", "text"}, "audio": {"base", "audio"}}
JOBS = {"ocr", "documents", "record", "speech", "answer", "mcp"}
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"/]+)/')


def allowed(folder):
    """The folders `folder` may include, or None when it may include any."""
    if folder == "cli":
        return None
    if folder in SHARED:
        return SHARED[folder]
    if folder in JOBS:
        return {folder, "base", "text", "audio"}
    return set()  # a folder the rule does not know: every include of ours is reported


def violations(src):
    found = []
    for root, _, files in os.walk(src):
        for name in sorted(files):
            if not name.endswith((".h", ".cpp")):
                continue
            path = os.path.join(root, name)
            relative = os.path.relpath(path, src)
            parts = relative.split(os.sep)
            if len(parts) == 1:
                folder, permitted = relative, {"cli", "base"}
            else:
                folder = parts[0]
                permitted = allowed(folder)
                if folder not in SHARED and folder not in JOBS and folder != "cli":
                    found.append(f"{relative}: src/{folder}/ is not a folder the layout names")
            with open(path, encoding="utf-8", errors="replace") as text:
                for number, line in enumerate(text, 1):
                    match = INCLUDE.match(line)
                    if not match:
                        continue
                    target = match.group(1)
                    if not os.path.isdir(os.path.join(src, target)):
                        continue  # a library's own folder (<pulse/...> written with quotes)
                    if permitted is not None and target not in permitted:
                        found.append(f"{relative}:{number}: {folder} includes {target}/")
    return found


def self_test():
    cases = [
        ({"ocr/a.cpp": '#include "ocr/b.h"\n#include "base/out.h"\n', "ocr/b.h": "",
          "base/out.h": ""}, 0),
        ({"speech/a.h": '#include "record/wav.h"\n', "record/wav.h": ""}, 1),
        ({"record/a.cpp": '#include "cli/dispatch.h"\n', "cli/dispatch.h": ""}, 1),
        ({"base/out.h": '#include "text/utf8.h"\n', "text/utf8.h": ""}, 1),
        ({"audio/w.h": '#include "record/r.h"\n', "record/r.h": ""}, 1),
        ({"mcp/m.cpp": '#  include "text/line.h"\n#include "audio/x.h"\n', "text/line.h": "",
          "audio/x.h": ""}, 0),
        ({"cli/dispatch.cpp": '#include "ocr/v.h"\n#include "mcp/b.h"\n', "ocr/v.h": "",
          "mcp/b.h": ""}, 0),
        ({"main.cpp": '#include "ocr/v.h"\n', "ocr/v.h": ""}, 1),
        ({"extra/x.cpp": "", "base/b.h": ""}, 1),
    ]
    for number, (files, expected) in enumerate(cases, 1):
        with tempfile.TemporaryDirectory() as src:
            for name, body in files.items():
                path = os.path.join(src, name)
                os.makedirs(os.path.dirname(path), exist_ok=True)
                with open(path, "w") as out:
                    out.write(body)
            got = violations(src)
            if len(got) != expected:
                print(f"case {number}: expected {expected} violations, got {got}")
                return 1
    print(f"{len(cases)} cases checked")
    return 0


def main():
    if sys.argv[1:] == ["--self-test"]:
        return self_test()
    if len(sys.argv) != 2:
        print(__doc__)
        return 2
    found = violations(sys.argv[1])
    for line in found:
        print(line)
    if found:
        print(f"{len(found)} includes break the layout rule (tests/layout/check_includes.py)")
        return 1
    print("every include keeps to the layout rule")
    return 0


if __name__ == "__main__":
    sys.exit(main())
