#!/usr/bin/env python3
"""Lists C and C++ functions longer than a limit (80 lines by default).

usage: tools/long_functions.py [--max N] FOLDER_OR_FILE...

Function extents come from universal-ctags (its `end` field), which parses
the language instead of counting braces, so braces in strings, comments and
macros do not throw the count off. Prints one line per long function,
`path:line: name (N lines)`, longest first, and exits 1 when it lists any,
0 when none, 2 when ctags is missing or fails.
"""
import argparse
import json
import shutil
import subprocess
import sys

SUFFIXES = (".c", ".cc", ".cpp", ".cxx", ".h", ".hh", ".hpp", ".hxx", ".inc")


def ctags_functions(paths):
    """Yields (path, name, first line, last line) for each function body."""
    command = [
        "ctags", "--output-format=json", "--fields=+ne", "--recurse",
        "--languages=C,C++", "--langmap=C++:+.h.inc",
        "--kinds-C=f", "--kinds-C++=f", "-o", "-",
    ] + list(paths)
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    if result.returncode != 0:
        sys.stderr.write(result.stderr)
        raise SystemExit(2)
    for line in result.stdout.splitlines():
        tag = json.loads(line)
        if tag.get("_type") != "tag" or "end" not in tag:
            continue
        if not tag["path"].endswith(SUFFIXES):
            continue
        name = tag["name"]
        if tag.get("scopeKind") in ("class", "struct", "namespace"):
            # ctags names anonymous namespaces __anon<hash>; they add nothing to a name
            scope = [part for part in tag["scope"].split("::") if not part.startswith("__anon")]
            name = "::".join(scope + [name])
        yield tag["path"], name, tag["line"], tag["end"]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--max", type=int, default=80, help="longest allowed, in lines")
    parser.add_argument("paths", nargs="+", help="folders or files to scan")
    args = parser.parse_args()
    if shutil.which("ctags") is None:
        sys.stderr.write("long_functions: ctags (universal-ctags) not found\n")
        return 2
    long_ones = []
    for path, name, first, last in ctags_functions(args.paths):
        length = last - first + 1
        if length > args.max:
            long_ones.append((length, path, first, name))
    long_ones.sort(key=lambda row: (-row[0], row[1], row[2]))
    for length, path, first, name in long_ones:
        print(f"{path}:{first}: {name} ({length} lines)")
    return 1 if long_ones else 0


if __name__ == "__main__":
    sys.exit(main())
