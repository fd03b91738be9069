#!/usr/bin/env python3
"""Drops from clang-tidy's exported renames (YAML files in the directory given) every
replacement whose target text is not the name being renamed.

clang-tidy 14's readability-identifier-naming also "renames" the capture default of a
lambda that uses the name (`[&]` would become `[new_name]`); the replacement's range
then covers `&` or `=` instead of the old name.
"""
import glob
import re
import sys

NAME = re.compile(r"^ +Message: +'invalid case style for [a-z ]+ ''(.+?)'''$")
FILE = re.compile(r"^ +- FilePath: +'(.*)'$")
dropped = 0
cache = {}


def text_at(path, offset, length):
    if path not in cache:
        with open(path, "rb") as f:
            cache[path] = f.read()
    return cache[path][offset:offset + length].decode("utf-8", "replace")


for yaml in glob.glob(sys.argv[1] + "/*.yaml"):
    lines = open(yaml).read().split("\n")
    out, name, i = [], None, 0
    while i < len(lines):
        m = NAME.match(lines[i])
        if m:
            name = m.group(1).replace("''", "'")
        f = FILE.match(lines[i])
        if f and name and i + 3 < len(lines) and "ReplacementText:" in lines[i + 3]:
            offset = int(lines[i + 1].split(":")[1])
            length = int(lines[i + 2].split(":")[1])
            if text_at(f.group(1), offset, length) != name:
                dropped += 1
                i += 4
                continue
        out.append(lines[i])
        i += 1
    open(yaml, "w").write("\n".join(out))
print(f"apply-naming: {dropped} replacements dropped (not the old name's text)")
