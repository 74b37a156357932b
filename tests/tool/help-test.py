#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: help-test.py FBR

Looks at what the table of commands gives besides the commands: their help, the manual page, and what
shells complete words by. Each page is shown to its program where that is there.
"""
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile


def run(*words, status=0, text=None, env=None):
    result = subprocess.run(words, input=text, env=env, capture_output=True, text=True, timeout=60)
    assert result.returncode == status, (words, result)
    assert not (result.stdout if status else result.stderr), (words, result)
    return result.stdout or result.stderr


def options_of(fbr, name):
    text = run(fbr, name, "--help")
    for part in ("--method METHOD", "\nExit status:\n  0    done\n", "  4    busy",
                 "\nExamples:\n  fbr ", "  130  interrupted"):
        assert part in text, (name, part)
    assert len(re.findall(f"\n  fbr {name} ", text.split("\nExamples:")[1])) >= 2, text
    # A slip of the finger leads back.
    assert f'did you mean "{name}"?' in run(fbr, name + "x", status=2)
    # A name and what it does stand apart.
    for line in text.split("With every command:\n")[1].split("\n\n")[0].split("\n"):
        assert re.fullmatch(r"  -\S+( \S+)?|(  -\S+( \S+)?) {2,}\S.*| {30}\S.*", line), line
    options = {option for found in re.findall(r"\n  (-\S*)", text) for option in found.split(",")}
    assert len(options) >= 8, text
    return options


def words_told(fbr, *words):
    """The words that are named where another one is refused."""
    return set(run(fbr, *words, status=2).split("expected ")[1].split(" or a number")[0].split(", "))


def bash_offers(script, words):
    return set(run("bash", "-s", text=f"""{script}
        COMP_WORDS=(fbr {words.replace("=", " = ")})
        COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1))
        _fbr
        echo "${{COMPREPLY[@]}}" """).split())


def fish_offers(script, words):
    with tempfile.NamedTemporaryFile("w") as file:
        print(script, file=file, flush=True)
        offered = run("fish", "-c", f'source {file.name}; complete -C "fbr $argv"',
                      "--", words.replace("''", ""))
    return {line.split("\t")[0] for line in offered.splitlines()}


def zsh_offers(script, words):
    with open(".zshrc", "w", encoding="utf-8") as file:
        print(f"""autoload -Uz compinit; compinit -u
            {script}
            compadd() {{ local -a found
                [[ " $* " == *' '-[ADO]' '* ]] || builtin compadd -A found "$@"  # not who asks
                offered+=($found); builtin compadd "$@" }}
            zle-line-init() {{ LBUFFER={shlex.quote("fbr " + words.replace("''", ""))}
                zle complete-word; print -l -- $offered > .offered; exit }}
            zle -N zle-line-init""", file=file)
    run("script", "-qec", "zsh -i", "/dev/null", env=dict(os.environ, ZDOTDIR=os.getcwd()))
    with open(".offered", encoding="utf-8") as file:
        return set(file.read().split())


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

    types, methods = words_told(fbr, "find", "s", "--type", "x"), words_told(fbr, "ls", "s", "--method", "x")
    assert min(len(types), len(methods)) > 5, (types, methods)
    offers = {"''": set(options), "export --format ''": {"reg", "jsonl"}, "--trace ls exp": {"export"},
              "export x": set(), "--wait ''": set(),  # a file, a word of an option
              "--trace-level ''": {"1", "3", "4"}, "--method ''": methods,
              "cp s k --to-method=cl": {"cluster"}, "ls --method=''": methods,
              "find s --type ''": types, "set s k --from-file x n dw": {"dword", "dword_be"},
              "set s k --method hive n ''": types, "set s k ''": set(), "generate f": {"fish"}}
    offers |= {f"--color never {name} x -": options[name] for name in options}
    for shell, offered_by in (("bash", bash_offers), ("fish", fish_offers), ("zsh", zsh_offers)):
        for words, expected in offers.items() if shutil.which(shell) else ():
            offered = {word.split("=")[-1] for word in offered_by(pages[shell], words)}
            assert offered - {"--version"} == expected, (shell, words, offered)


tool = os.path.abspath(sys.argv[1])
with tempfile.TemporaryDirectory() as empty:
    os.chdir(empty)  # where no names of files are offered
    main(tool)
