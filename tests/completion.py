"""Checks that the shells complete every command and option of the tool: tests/completion.py SYSLOGCTL"""
import pathlib
import re
import shutil
import subprocess
import sys

TOOL = sys.argv[1]
FOLDER = pathlib.Path(__file__).resolve().parent.parent
FILES = {shell: FOLDER / "completion" / name
         for shell, name in (("bash", "syslogctl.bash"), ("zsh", "_syslogctl"), ("fish", "syslogctl.fish"))}
faults = []


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def tool_says(*words):
    return run(TOOL, *words)


def bash(*words):
    script = """source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
        _syslogctl syslogctl "${!#}" "${COMP_WORDS[COMP_CWORD - 1]}"; printf '%s\\n' "${COMPREPLY[@]}\""""
    return run("bash", "-c", script, "bash", str(FILES["bash"]), "syslogctl", *words).split()


def fish(*words):
    line = " ".join(("syslogctl", *words))
    script = f'source {FILES["fish"]}; complete -C "{line}"'
    return [row.split("\t")[0] for row in run("fish", "-N", "-c", script).split("\n")]


def asking(shell, complete):
    """Returns a check that asks the shell for its completions."""
    def check(wanted, *words):
        missing = set(wanted) - set(complete(*words))
        if missing:
            faults.append(f"{shell} does not complete {' '.join(sorted(missing))} after {words}")
    return check


def check_zsh_file(wanted, *words):
    """Checks only that zsh's file has the wanted words, as zsh completes only at a terminal."""
    text = FILES["zsh"].read_text()
    faults.extend(f"the zsh file does not have {word}" for word in wanted
                  if not re.search(rf"(?<![\w-]){re.escape(word)}(?![\w-])", text))


checks = [asking("bash", bash), check_zsh_file]
if shutil.which("fish"):
    checks.append(asking("fish", fish))
else:
    print("left out: completion in fish: not installed")
for shell in ("bash", "zsh", "fish"):
    if shutil.which(shell):
        run(shell, "-n", str(FILES[shell]))

variables = re.findall(r'kRemoteLog\w+\[\] = "(\w+)"', (FOLDER / "common/ServiceNames.h").read_text())
common = re.findall(r"--[\w-]+", tool_says("--help"))
commands = re.findall(r"^  (\w+) ", tool_says("--help"), re.M)
assert variables and common and len(commands) > 8, (variables, common, commands)
for check in checks:
    check(commands, "")
    check(variables, "set", "")
    for command in commands:
        if command != "help":
            # Skips the first line, the synopsis. The lines below name every option.
            own = re.findall(r"--\w[\w-]*(?=[ =]|$)", tool_says("help", command).partition("\n")[2])
            check({*common, *own}, command, "--")
sys.exit("\n".join(faults) or 0)
