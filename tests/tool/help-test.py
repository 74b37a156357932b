#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: help-test.py FBR

Looks at what the table of commands gives besides the commands: their help, the manual page, and what
shells complete words by. Each page is shown to its program where that is there.
"""
import re
import shutil
import subprocess
import sys
import tempfile


def run(*words, status=0, text=None):
    result = subprocess.run(words, input=text, capture_output=True, text=True, timeout=60)
    assert result.returncode == status, (words, result)
    assert not (result.stdout if status else result.stderr), (words, result)
    return result.stdout or result.stderr


def options_of(fbr, name):
    text = run(fbr, name, "--help")
    for part in ("--method METHOD", "\nExit status:\n  0    done\n", "  4    busy",
                 "\nExamples:\n  fbr ", "  130  interrupted"):
        assert part in text, (name, part)
    assert text.split("\nExamples:\n")[1].count(f"fbr {name} ") >= 2, text
    # A slip of the finger leads back.
    assert f'did you mean "{name}"?' in run(fbr, name + "x", status=2)
    # A name and what it does stand apart.
    for line in text.split("With every command:\n")[1].split("\n\n")[0].split("\n"):
        assert re.fullmatch(r"  -\S+( \S+)?|(  -\S+( \S+)?) {2,}\S.*| {30}\S.*", line), line
    options = {option for found in re.findall(r"\n  (-\S*)", text) for option in found.split(",")}
    assert len(options) >= 8, text
    return options


def bash_offers(script, words):
    return set(run("bash", "-s", text=f"""{script}
        COMP_WORDS=(fbr {words})
        COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1))
        _fbr
        echo "${{COMPREPLY[@]}}" """).split())


def fish_offers(script, words):
    with tempfile.NamedTemporaryFile("w") as file:
        print(script, file=file, flush=True)
        offered = run("fish", "-c", f'source {file.name}; complete -C "fbr $argv"',
                      "--", words.replace("''", ""))
    return {line.split("\t")[0] for line in offered.splitlines()}


def main(fbr):
    listed = run(fbr, "--help").split("\nSubcommands:\n")[1].split("\n\n")[0]
    options = {name: options_of(fbr, name) for name in re.findall(r"^  (\S+) ", listed, re.M)}
    assert len(options) > 15, listed
    assert run(fbr, "xyzzy", status=2).startswith('fbr: expected a command, not "xyzzy"\n')

    pages = {kind: run(fbr, "generate", kind)
             for kind in ("man", "bash", "zsh", "fish", "powershell")}
    plain = dict(pages, man=re.sub(r"\\f[BRI]|\\", "", pages["man"]),
                 fish=pages["fish"].replace(" -l ", " --").replace(" -s ", " -"))
    for kind, text in plain.items():
        lacks = set(options).union(*options.values()) - set(re.findall("[A-Za-z0-9-]+", text))
        assert not lacks, (kind, lacks)
    for kind, *words in (("man", "groff", "-man", "-ww", "-z"), ("zsh", "zsh", "-n"),
                         ("fish", "fish", "-n"), ("powershell", "pwsh", "-NoProfile", "-File")):
        with tempfile.NamedTemporaryFile("w") as file:
            print(pages[kind], file=file, flush=True)
            if shutil.which(words[0]):
                run(*words, file.name)

    offers = {"''": set(options), "export --format ''": {"reg", "jsonl"}, "--trace ls exp": {"export"},
              "export x": set(), "--method ''": set()}  # a file, a word of an option
    offers |= {f"--color never {name} x -": options[name] for name in options}
    for words, expected in offers.items():
        assert bash_offers(pages["bash"], words) - {"--version"} == expected, words
        if shutil.which("fish") and words != "export x":  # which offers files
            assert fish_offers(pages["fish"], words) - {"--version"} == expected, words


main(sys.argv[1])
